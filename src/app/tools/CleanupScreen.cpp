#include "app/tools/CleanupScreen.h"

#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "app/desktop/DesktopServices.h"
#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ScanSession.h"
#include "app/model/SnapshotFlow.h"
#include "app/screens/EmptyState.h"
#include "app/shell/ShellTexts.h"
#include "app/tools/ToolWidgets.h"
#include "cleanup/CleanupPolicy.h"
#include "model/PathText.h"
#include "platform/UserFolders.h"

namespace tarnbridge::app {

namespace {

using namespace ToolWidgets;

QString dateText(double unixSeconds)
{
    return QLocale().toString(QDateTime::fromSecsSinceEpoch(qint64(unixSeconds)), QLocale::ShortFormat);
}

QString nameOf(const std::string& path)
{
    return displayText(PathText::name(path));
}

QString folderOf(const std::string& path)
{
    const auto cut = path.find_last_of('/');
    if (cut == std::string::npos)
        return {};
    return displayText(cut == 0 ? std::string("/") : path.substr(0, cut));
}

QWidget* section(const QString& title, const QString& line, QTreeWidget* list)
{
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 8, 0, 0);
    layout->setSpacing(4);
    layout->addWidget(heading(title, 1.15));
    if (!line.isEmpty())
        layout->addWidget(note(line));
    layout->addWidget(list);
    return box;
}

} // namespace

QString CleanupScreen::duplicateNote()
{
    return QStringLiteral("Duplicate — kept copy will be checked again");
}

CleanupScreen::CleanupScreen(AppModel& app, QWidget* parent) : QWidget(parent), app_(app)
{
    setObjectName(QStringLiteral("cleanupScreen"));
    QVBoxLayout* page = scrolledPage(this);

    auto* top = new QHBoxLayout;
    auto* totals = new QVBoxLayout;
    totals->setSpacing(2);
    total_ = heading({}, 1.6);
    total_->setObjectName(QStringLiteral("queueBytes"));
    totals->addWidget(total_);
    totals->addWidget(note(QStringLiteral("System files are protected")));
    top->addLayout(totals, 1);
    removeAll_ = new QPushButton(QStringLiteral("Remove all"));
    removeAll_->setObjectName(QStringLiteral("removeAll"));
    removeAll_->setToolTip(QStringLiteral("Remove all items from Cleanup — files stay in place"));
    top->addWidget(removeAll_, 0, Qt::AlignBottom);
    move_ = new QPushButton(ShellTexts::icon("user-trash"), QStringLiteral("Move to Trash…"));
    move_->setObjectName(QStringLiteral("moveToTrash"));
    top->addWidget(move_, 0, Qt::AlignBottom);
    page->addLayout(top);

    card_ = new ProgressCard;
    card_->setObjectName(QStringLiteral("cleanupProgress"));
    page->addWidget(card_);

    empty_ = new EmptyState(ShellTexts::icon("user-trash"), QStringLiteral("Cleanup is empty"),
                            QStringLiteral("Right-click a file or choose Add to Cleanup."));
    auto* browse = new QPushButton(QStringLiteral("Browse files"));
    browse->setObjectName(QStringLiteral("browseFiles"));
    empty_->buttons()->addWidget(browse);
    empty_->setMinimumHeight(260);
    page->addWidget(empty_);

    queue_ = list({QStringLiteral("Name"), QStringLiteral("Size"), QStringLiteral("Reason"), QString(), QString()},
                  QStringLiteral("Cleanup"));
    queue_->setObjectName(QStringLiteral("queueList"));
    queueBox_ = section(QStringLiteral("Cleanup"), {}, queue_);
    page->addWidget(queueBox_);

    receipts_ = list({QStringLiteral("Name"), QStringLiteral("Original location"), QStringLiteral("Size"),
                      QStringLiteral("Moved"), QString()},
                     QStringLiteral("Recently trashed"));
    receipts_->setObjectName(QStringLiteral("receiptList"));
    receiptBox_ = section(QStringLiteral("Recently trashed"), QStringLiteral("Files can be restored until Trash is emptied."),
                          receipts_);
    page->addWidget(receiptBox_);

    backups_ = list({QStringLiteral("Backup"), QStringLiteral("Items"), QStringLiteral("Created"), QString()},
                    QStringLiteral("File backups"));
    backups_->setObjectName(QStringLiteral("backupList"));
    backupBox_ = section(QStringLiteral("File backups"), {}, backups_);
    page->addWidget(backupBox_);
    page->addStretch(1);

    connect(browse, &QPushButton::clicked, this, [this] { app_.setSection(AppSection::explore); });
    connect(removeAll_, &QPushButton::clicked, this, [this] { app_.cleanup().removeAll(); });
    connect(move_, &QPushButton::clicked, this, [this] { app_.cleanup().requestCleanup(); });
    connect(card_, &ProgressCard::cancelled, this, [this] { app_.cleanup().cancelCleanup(); });
    connect(&app_.cleanup(), &CleanupFlow::changed, this, &CleanupScreen::refresh);
    connect(&app_.cleanup(), &CleanupFlow::progressChanged, this, &CleanupScreen::showProgress);
    connect(&app_.session(), &ScanSession::progressChanged, this, &CleanupScreen::updateButtons);
    connect(&app_.session(), &ScanSession::scanChanged, this, &CleanupScreen::updateButtons);
    connect(&app_.snapshots(), &SnapshotFlow::changed, this, &CleanupScreen::updateButtons);
    refresh();
}

void CleanupScreen::refresh()
{
    showQueue();
    showReceipts();
    showBackups();
    showProgress();
}

void CleanupScreen::showQueue()
{
    const CleanupFlow& flow = app_.cleanup();
    const auto& queue = flow.queue();
    total_->setText(bytes(flow.queueBytes()));
    empty_->setVisible(queue.empty());
    queueBox_->setVisible(!queue.empty());
    queue_->clear();
    // The policy is asked about the disk as it is now, as the review will.
    const CleanupPolicy policy{platform::currentHome()};
    const QIcon shield = ShellTexts::icon("security-high", "dialog-warning");
    for (const CleanupEntry& entry : queue) {
        const QString name = nameOf(entry.node.path);
        auto* item = new QTreeWidgetItem(queue_);
        item->setText(0, name);
        item->setToolTip(0, displayText(entry.node.path));
        item->setText(1, bytes(entry.node.allocatedSize));
        item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
        item->setText(2, displayText(entry.reason));
        if (const auto refusal = policy.rejection(entry.node.path)) {
            item->setIcon(3, shield);
            item->setText(3, displayText(*refusal));
        } else if (!entry.retainedCopies.empty()) {
            item->setText(3, duplicateNote());
        }
        QPushButton* remove = rowButton(queue_, item, 4, QStringLiteral("Remove from Cleanup"),
                                        QStringLiteral("Remove ") + name + QStringLiteral(" from Cleanup"));
        remove->setEnabled(!flow.cleaning() && !flow.staging());
        connect(remove, &QPushButton::clicked, this,
                [this, path = entry.node.path] { app_.cleanup().removeFromQueue(path); });
    }
    fitHeight(queue_, 14);
    updateButtons();
}

void CleanupScreen::showReceipts()
{
    const auto& receipts = app_.cleanup().receipts();
    receiptBox_->setVisible(!receipts.empty());
    receipts_->clear();
    for (const TrashReceipt& receipt : receipts) {
        const QString name = nameOf(receipt.originalPath);
        auto* item = new QTreeWidgetItem(receipts_);
        item->setText(0, name);
        item->setText(1, folderOf(receipt.originalPath));
        item->setToolTip(1, displayText(receipt.originalPath));
        item->setText(2, bytes(receipt.bytes));
        item->setTextAlignment(2, Qt::AlignRight | Qt::AlignVCenter);
        item->setText(3, dateText(receipt.date));
        QPushButton* restore = rowButton(receipts_, item, 4, QStringLiteral("Restore"), QStringLiteral("Restore ") + name);
        connect(restore, &QPushButton::clicked, this, [this, receipt] { app_.cleanup().restore(receipt); });
    }
    fitHeight(receipts_, 8);
}

void CleanupScreen::showBackups()
{
    const auto& backups = app_.cleanup().backups();
    backupBox_->setVisible(!backups.empty());
    backups_->clear();
    for (const BackupReceipt& backup : backups) {
        auto* item = new QTreeWidgetItem(backups_);
        item->setText(0, nameOf(backup.directory));
        item->setToolTip(0, displayText(backup.directory));
        item->setText(1, counted(qint64(backup.items.size()), " item", " items"));
        item->setText(2, dateText(backup.createdAt));
        QPushButton* show = rowButton(backups_, item, 3, QStringLiteral("Show in File Manager"),
                                      QStringLiteral("Show ") + nameOf(backup.directory) +
                                          QStringLiteral(" in File Manager"));
        connect(show, &QPushButton::clicked, this,
                [directory = displayText(backup.directory)] { DesktopServices::showInFileManager(directory); });
    }
    fitHeight(backups_, 6);
}

void CleanupScreen::showProgress()
{
    const auto& progress = app_.cleanup().cleanupProgress();
    card_->setVisible(progress.has_value());
    if (progress) {
        card_->setTexts(QStringLiteral("Preparing cleanup…"), displayText(progress->message));
        // Once files are moving, stopping halfway would leave a cleanup no one asked for.
        card_->cancelButton()->setEnabled(progress->phase != CleanupPhase::movingToTrash);
    }
    updateButtons();
}

void CleanupScreen::updateButtons()
{
    const CleanupFlow& flow = app_.cleanup();
    const bool busy = flow.cleaning() || flow.staging();
    const bool hasQueue = !flow.queue().empty();
    removeAll_->setEnabled(hasQueue && !busy);
    move_->setEnabled(hasQueue && !busy && !app_.scanning() && !app_.snapshotBusy() && !flow.cleanupRequest());
}

} // namespace tarnbridge::app
