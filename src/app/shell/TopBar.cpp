#include "app/shell/TopBar.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QToolButton>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/Preferences.h"
#include "app/shell/ShellTexts.h"
#include "app/views/ExplorationToolbar.h"

namespace tarnbridge::app {

TopBar::TopBar(AppModel& app, QWidget* parent)
    : QWidget(parent)
    , app_(app) {
    setObjectName(QStringLiteral("topBar"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->setSpacing(8);

    title_ = new QLabel;
    title_->setObjectName(QStringLiteral("sectionTitle"));
    QFont font = title_->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 1.25);
    title_->setFont(font);
    layout->addWidget(title_);

    toolbar_ = new ExplorationToolbar(app_, this);
    layout->addWidget(toolbar_, 1);
    // Holds the controls on the right when the chart's toolbar is hidden.
    layout->addStretch(0);

    filter_ = new QLineEdit;
    filter_->setObjectName(QStringLiteral("filterField"));
    filter_->setPlaceholderText(QStringLiteral("Filter by name"));
    filter_->setAccessibleName(QStringLiteral("Filter by name"));
    filter_->setClearButtonEnabled(true);
    filter_->setMinimumWidth(160);
    filter_->setMaximumWidth(260);
    // The line edit's clear control is an action of its own; give it the design's name.
    for (QAction* action : filter_->actions())
        action->setToolTip(QStringLiteral("Clear search"));
    connect(filter_, &QLineEdit::textChanged, this,
            [this](const QString& text) { app_.explore().setFilter(text); });
    layout->addWidget(filter_);

    sizeSwitch_ = toggle(QStringLiteral("Size on disk"), "drive-harddisk");
    sizeSwitch_->setObjectName(QStringLiteral("sizeSwitch"));
    sizeSwitch_->setToolButtonStyle(Qt::ToolButtonTextOnly);
    connect(sizeSwitch_, &QToolButton::toggled, this,
            [this](bool allocated) { app_.explore().setLogical(!allocated); });
    // The labels switch lives in the exploration toolbar beside the chart it changes.
    inspector_ = toggle(QStringLiteral("Toggle inspector"), "sidebar-show-right");
    connect(inspector_, &QToolButton::toggled, this,
            [this](bool on) { app_.explore().setShowInspector(on); });
    for (QWidget* w : {static_cast<QWidget*>(sizeSwitch_), static_cast<QWidget*>(inspector_)})
        layout->addWidget(w);

    theme_ = new QComboBox;
    theme_->setObjectName(QStringLiteral("themePicker"));
    theme_->setAccessibleName(QStringLiteral("Color theme"));
    theme_->setToolTip(QStringLiteral("Color theme"));
    theme_->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    for (AppTheme theme :
         {AppTheme::paper, AppTheme::linen, AppTheme::sage, AppTheme::mist, AppTheme::slate})
        theme_->addItem(QLatin1String(themeName(theme)), int(theme));
    connect(theme_, &QComboBox::activated, this, [this](int index) {
        app_.preferences().setTheme(AppTheme(theme_->itemData(index).toInt()));
    });
    layout->addWidget(theme_);
    dark_ = toggle(QStringLiteral("Dark appearance"), "weather-clear-night");
    dark_->setObjectName(QStringLiteral("darkToggle"));
    connect(dark_, &QToolButton::toggled, this,
            [this](bool on) { app_.preferences().setDark(on); });
    layout->addWidget(dark_);

    connect(&app_, &AppModel::sectionChanged, this, &TopBar::showSection);
    connect(&app_.explore(), &ExploreState::displayChanged, this, &TopBar::showDisplay);
    connect(&app_.explore(), &ExploreState::filtersChanged, this, &TopBar::showDisplay);
    connect(&app_.preferences(), &Preferences::changed, this, &TopBar::showPreferences);
    showSection();
    showDisplay();
    showPreferences();
}

QToolButton* TopBar::toggle(const QString& name, const char* icon) {
    auto* button = new QToolButton;
    button->setCheckable(true);
    button->setAutoRaise(true);
    button->setToolButtonStyle(Qt::ToolButtonIconOnly);
    button->setIcon(ShellTexts::icon(icon));
    button->setText(name);
    button->setToolTip(name);
    button->setAccessibleName(name);
    return button;
}

void TopBar::showSection() {
    title_->setText(ShellTexts::sectionName(app_.section()));
    toolbar_->setVisible(app_.section() == AppSection::explore);
}

void TopBar::showDisplay() {
    const auto& explore = app_.explore();
    const QSignalBlocker a(sizeSwitch_), c(inspector_);
    sizeSwitch_->setChecked(!explore.logical());
    sizeSwitch_->setText(explore.logical() ? QStringLiteral("Logical size")
                                           : QStringLiteral("Size on disk"));
    const QString announced = explore.logical() ? QStringLiteral("Showing logical size")
                                                : QStringLiteral("Showing size on disk");
    sizeSwitch_->setAccessibleName(announced);
    sizeSwitch_->setToolTip(announced);
    inspector_->setChecked(explore.showInspector());
    if (filter_->text() != explore.filter())
        filter_->setText(explore.filter());
}

void TopBar::showPreferences() {
    const auto& preferences = app_.preferences();
    const QSignalBlocker a(dark_), b(theme_);
    dark_->setChecked(preferences.dark());
    theme_->setCurrentIndex(theme_->findData(int(preferences.theme())));
}

} // namespace tarnbridge::app
