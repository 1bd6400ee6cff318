#include "app/shell/SettingsDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QVBoxLayout>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/Preferences.h"

namespace tarnbridge::app {
namespace {

QLabel* note(const QString& text) {
    auto* label = new QLabel(text);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

} // namespace

SettingsDialog::SettingsDialog(AppModel& app, QWidget* parent)
    : QDialog(parent)
    , app_(app) {
    setObjectName(QStringLiteral("settings"));
    setWindowTitle(QStringLiteral("Settings"));
    setMinimumWidth(520);
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    const auto check = [&](const QString& text) {
        auto* box = new QCheckBox(text);
        form->addRow(box);
        return box;
    };
    dark = check(QStringLiteral("Dark appearance"));
    theme = new QComboBox;
    for (AppTheme value :
         {AppTheme::paper, AppTheme::linen, AppTheme::sage, AppTheme::mist, AppTheme::slate})
        theme->addItem(QLatin1String(themeName(value)), int(value));
    form->addRow(QStringLiteral("Color theme"), theme);
    showHidden = check(QStringLiteral("Show hidden files"));
    allocated = check(QStringLiteral("Measure size on disk (allocated)"));
    labels = check(QStringLiteral("Draw labels on visualisations"));
    backup = check(QStringLiteral("Back up files before cleanup"));
    snapshots = check(QStringLiteral("Save scan snapshots"));
    form->addRow(note(QStringLiteral("Snapshots record sizes and paths for comparison. File "
                                     "backups are separate copies made before cleanup.")));
    layout->addLayout(form);
    layout->addWidget(note(QStringLiteral("Size on disk uses allocated blocks and counts hard "
                                          "links once. Logical size counts each file entry. Shared "
                                          "extents, sparse files and file-system snapshots can "
                                          "make these totals differ from other tools.")));
    layout->addWidget(note(QStringLiteral("Folders your account cannot read are skipped and listed "
                                          "under Scan access details. Tarnbridge never requests "
                                          "administrator privileges.")));
    layout->addStretch(1);
    layout->addWidget(note(QStringLiteral("Version " TARNBRIDGE_VERSION " · Linux desktop")));
    layout->addWidget(note(
        QStringLiteral("Scanning, comparison and monitoring happen on this computer; no file data "
                       "or analytics are sent anywhere.")));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);

    auto& preferences = app_.preferences();
    auto& explore = app_.explore();
    connect(dark, &QCheckBox::toggled, &preferences, &Preferences::setDark);
    connect(theme, &QComboBox::activated, this, [this](int index) {
        app_.preferences().setTheme(AppTheme(theme->itemData(index).toInt()));
    });
    connect(showHidden, &QCheckBox::toggled, &explore, &ExploreState::setShowHidden);
    connect(allocated, &QCheckBox::toggled, this,
            [this](bool on) { app_.explore().setLogical(!on); });
    connect(labels, &QCheckBox::toggled, &explore, &ExploreState::setShowLabels);
    connect(backup, &QCheckBox::toggled, &preferences, &Preferences::setBackupBeforeCleanup);
    connect(snapshots, &QCheckBox::toggled, &preferences, &Preferences::setSnapshotsEnabled);
    connect(&preferences, &Preferences::changed, this, &SettingsDialog::showValues);
    connect(&explore, &ExploreState::displayChanged, this, &SettingsDialog::showValues);
    connect(&explore, &ExploreState::filtersChanged, this, &SettingsDialog::showValues);
    showValues();
}

void SettingsDialog::showValues() {
    const auto& preferences = app_.preferences();
    const auto& explore = app_.explore();
    const QSignalBlocker a(dark), b(theme), c(showHidden), d(allocated), e(labels), f(backup),
        g(snapshots);
    dark->setChecked(preferences.dark());
    theme->setCurrentIndex(theme->findData(int(preferences.theme())));
    showHidden->setChecked(explore.showHidden());
    allocated->setChecked(!explore.logical());
    labels->setChecked(explore.showLabels());
    backup->setChecked(preferences.backupBeforeCleanup());
    snapshots->setChecked(preferences.snapshotsEnabled());
}

} // namespace tarnbridge::app
