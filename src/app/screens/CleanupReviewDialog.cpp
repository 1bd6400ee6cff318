#include "app/screens/CleanupReviewDialog.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QFrame>
#include <QHBoxLayout>
#include <QTreeWidget>
#include <QLocale>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/Preferences.h"
#include "app/shell/ShellTexts.h"
#include "app/shell/ThemeIcon.h"
#include "app/tools/ToolWidgets.h"

namespace tarnbridge::app {

namespace {

using namespace ToolWidgets;

QLabel* wrapped(const QString& text)
{
    auto* label = new QLabel(text);
    label->setWordWrap(true);
    return label;
}

} // namespace

QString CleanupReviewDialog::title(const CleanupRequest& request)
{
    if (request.uninstallName)
        return QStringLiteral("Uninstall ") + *request.uninstallName + QStringLiteral(" to Trash?");
    return QStringLiteral("Move ") + counted(qint64(request.entries.size()), " item", " items") +
           QStringLiteral(" to Trash?");
}

CleanupReviewDialog::CleanupReviewDialog(AppModel& app, const CleanupRequest& request, QWidget* parent)
    : QDialog(parent), app_(app)
{
    setObjectName(QStringLiteral("cleanupReview"));
    const QString heading = title(request);
    setWindowTitle(heading);
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(8);
    layout->addWidget(ToolWidgets::heading(heading, 1.2));

    std::int64_t total = 0;
    items_ = list({QStringLiteral("Name"), QStringLiteral("Size"), QStringLiteral("Reason")}, QStringLiteral("Items to move"));
    items_->setObjectName(QStringLiteral("reviewItems"));
    for (const CleanupEntry& entry : request.entries) {
        auto* item = new QTreeWidgetItem(items_);
        item->setText(0, displayText(entry.node.path));
        item->setText(1, bytes(entry.node.allocatedSize));
        item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
        item->setText(2, displayText(entry.reason));
        total += entry.node.allocatedSize;
    }
    layout->addWidget(note(counted(qint64(request.entries.size()), " item", " items") + QStringLiteral(" · ") + bytes(total)));
    layout->addWidget(items_, 1);

    blocked_ = !request.blocked.empty();
    if (blocked_) {
        auto* box = new QFrame;
        box->setObjectName(QStringLiteral("blockedBox"));
        box->setFrameShape(QFrame::StyledPanel);
        auto* blockedLayout = new QVBoxLayout(box);
        auto* caption = new QHBoxLayout;
        caption->addWidget(new IconLabel(ShellTexts::icon("security-high", "dialog-warning"), 20));
        caption->addWidget(ToolWidgets::heading(QStringLiteral("Protected items cannot be moved to Trash")), 1);
        blockedLayout->addLayout(caption);
        blockedList_ = list({QStringLiteral("Item"), QStringLiteral("Why")}, QStringLiteral("Protected items"));
        blockedList_->setObjectName(QStringLiteral("blockedList"));
        for (const auto& [path, message] : request.blocked) {
            auto* item = new QTreeWidgetItem(blockedList_);
            item->setText(0, displayText(path));
            item->setText(1, displayText(message));
            item->setToolTip(1, displayText(message));
        }
        fitHeight(blockedList_, 5);
        blockedLayout->addWidget(blockedList_);
        blockedLayout->addWidget(wrapped(QStringLiteral("Remove these items from Cleanup to continue.")));
        layout->addWidget(box);
    }

    layout->addWidget(ToolWidgets::heading(QStringLiteral("Create a backup?")));
    backup_ = new QCheckBox(QStringLiteral("Back up files before cleanup"));
    backup_->setChecked(app.preferences().backupBeforeCleanup());
    layout->addWidget(backup_);
    layout->addWidget(note(QStringLiteral("Choose a folder for a verified copy. Use another drive to free space on this computer.")));
    snapshot_ = new QCheckBox(QStringLiteral("Save a scan snapshot"));
    snapshot_->setChecked(app.preferences().snapshotsEnabled());
    layout->addWidget(snapshot_);
    layout->addWidget(note(QStringLiteral("Snapshots save sizes and paths for comparison — they do not back up files.")));
    layout->addWidget(wrapped(QStringLiteral("System files are protected. Trash can be restored until emptied.")));

    auto* buttons = new QDialogButtonBox;
    cancel_ = buttons->addButton(QDialogButtonBox::Cancel);
    confirm_ = buttons->addButton(QStringLiteral("Move to Trash"), QDialogButtonBox::AcceptRole);
    confirm_->setObjectName(QStringLiteral("confirmTrash"));
    layout->addWidget(buttons);
    // Moving to the Trash is never the default: Enter cancels.
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
    resize(680, blocked_ ? 600 : 520);
}

void CleanupReviewDialog::reject()
{
    if (app_.cleanup().cleanupRequest())
        app_.cleanup().dismissReview();
    QDialog::reject();
}

void CleanupReviewDialog::updateConfirm()
{
    // "&&": a single "&" would make the next letter a mnemonic and vanish from the label.
    confirm_->setText(backup_->isChecked() ? QStringLiteral("Back up && Move to Trash…") : QStringLiteral("Move to Trash"));
    confirm_->setEnabled(!blocked_);
}

} // namespace tarnbridge::app
