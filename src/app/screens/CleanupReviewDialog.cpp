#include "app/screens/CleanupReviewDialog.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/Preferences.h"
#include "model/Formatting.h"

namespace tarnbridge::app {

namespace {

QLabel* wrapped(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    return label;
}

} // namespace

CleanupReviewDialog::CleanupReviewDialog(AppModel& app, const CleanupRequest& request, QWidget* parent)
    : QDialog(parent), app_(app)
{
    const qsizetype count = qsizetype(request.entries.size());
    QString title;
    if (request.uninstallName)
        title = QStringLiteral("Uninstall ") + *request.uninstallName + QStringLiteral(" to Trash?");
    else
        title = QStringLiteral("Move ") + QLocale().toString(count) +
                (count == 1 ? QStringLiteral(" item") : QStringLiteral(" items")) + QStringLiteral(" to Trash?");
    setWindowTitle(title);
    auto* layout = new QVBoxLayout(this);
    auto* heading = new QLabel(title, this);
    QFont bold = heading->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.2);
    heading->setFont(bold);
    layout->addWidget(heading);

    auto* items = new QListWidget(this);
    items->setAccessibleName(QStringLiteral("Items to move"));
    for (const CleanupEntry& entry : request.entries)
        items->addItem(QString::fromStdString(formattedBytes(entry.node.allocatedSize)) + QStringLiteral("  ") +
                       displayText(entry.node.path));
    layout->addWidget(items, 1);

    blocked_ = !request.blocked.empty();
    if (blocked_) {
        auto* label = new QLabel(QStringLiteral("Protected items cannot be moved to Trash"), this);
        label->setFont(bold);
        layout->addWidget(label);
        auto* list = new QListWidget(this);
        list->setAccessibleName(QStringLiteral("Protected items"));
        for (const auto& [path, message] : request.blocked)
            list->addItem(displayText(path) + QStringLiteral(" — ") + displayText(message));
        layout->addWidget(list);
        layout->addWidget(wrapped(QStringLiteral("Remove these items from Cleanup to continue."), this));
    }

    auto* backupTitle = new QLabel(QStringLiteral("Create a backup?"), this);
    backupTitle->setFont(bold);
    layout->addWidget(backupTitle);
    backup_ = new QCheckBox(QStringLiteral("Back up files before cleanup"), this);
    backup_->setChecked(app.preferences().backupBeforeCleanup());
    backup_->setToolTip(
        QStringLiteral("Choose a folder for a verified copy. Use another drive to free space on this computer."));
    layout->addWidget(backup_);
    snapshot_ = new QCheckBox(QStringLiteral("Save a scan snapshot"), this);
    snapshot_->setChecked(app.preferences().snapshotsEnabled());
    snapshot_->setToolTip(
        QStringLiteral("Snapshots save sizes and paths for comparison — they do not back up files."));
    layout->addWidget(snapshot_);
    layout->addWidget(wrapped(QStringLiteral("System files are protected. Trash can be restored until emptied."), this));

    auto* buttons = new QDialogButtonBox(this);
    cancel_ = buttons->addButton(QDialogButtonBox::Cancel);
    confirm_ = buttons->addButton(QStringLiteral("Move to Trash"), QDialogButtonBox::AcceptRole);
    layout->addWidget(buttons);
    // Moving to the Trash is never the default: Enter cancels until nothing is blocked.
    cancel_->setDefault(true);
    confirm_->setAutoDefault(false);

    connect(backup_, &QCheckBox::toggled, this, [this](bool on) {
        app_.preferences().setBackupBeforeCleanup(on);
        updateConfirm();
    });
    connect(snapshot_, &QCheckBox::toggled, this, [this](bool on) { app_.preferences().setSnapshotsEnabled(on); });
    connect(cancel_, &QPushButton::clicked, this, &CleanupReviewDialog::reject);
    connect(confirm_, &QPushButton::clicked, this, [this] {
        // The model asks for the backup folder; cancelling that keeps the review open.
        const auto pending = app_.cleanup().cleanupRequest();
        if (pending)
            app_.cleanup().confirmTrash(*pending);
        if (!app_.cleanup().cleanupRequest())
            accept();
    });
    updateConfirm();
    resize(640, 480);
}

void CleanupReviewDialog::reject()
{
    if (app_.cleanup().cleanupRequest())
        app_.cleanup().dismissReview();
    QDialog::reject();
}

void CleanupReviewDialog::updateConfirm()
{
    confirm_->setText(backup_->isChecked() ? QStringLiteral("Back up & Move to Trash…") : QStringLiteral("Move to Trash"));
    confirm_->setEnabled(!blocked_);
}

} // namespace tarnbridge::app
