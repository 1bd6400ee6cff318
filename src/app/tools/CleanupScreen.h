#pragma once

#include <QWidget>

class QLabel;
class QPushButton;
class QTreeWidget;

namespace tarnbridge::app {

class AppModel;
class EmptyState;
class ProgressCard;

// The queue of items staged for the Trash, the running cleanup, what was trashed recently and
// the verified backups. Every action goes through the model, which checks again before moving.
class CleanupScreen : public QWidget {
    Q_OBJECT
public:
    explicit CleanupScreen(AppModel& app, QWidget* parent = nullptr);

    QTreeWidget* queueList() const { return queue_; }
    QTreeWidget* receiptList() const { return receipts_; }
    QTreeWidget* backupList() const { return backups_; }
    ProgressCard* progressCard() const { return card_; }
    QPushButton* moveButton() const { return move_; }
    QPushButton* removeAllButton() const { return removeAll_; }

    static QString duplicateNote();

private:
    void refresh();
    void showQueue();
    void showReceipts();
    void showBackups();
    void showProgress();
    void updateButtons();

    AppModel& app_;
    QLabel* total_ = nullptr;
    QPushButton* removeAll_ = nullptr;
    QPushButton* move_ = nullptr;
    ProgressCard* card_ = nullptr;
    EmptyState* empty_ = nullptr;
    QWidget* queueBox_ = nullptr;
    QTreeWidget* queue_ = nullptr;
    QWidget* receiptBox_ = nullptr;
    QTreeWidget* receipts_ = nullptr;
    QWidget* backupBox_ = nullptr;
    QTreeWidget* backups_ = nullptr;
};

} // namespace tarnbridge::app
