#pragma once

#include <QDialog>

class QCheckBox;
class QLabel;
class QPushButton;
class QTreeWidget;

namespace tarnbridge::app {

class AppModel;
struct CleanupRequest;

// The review before anything moves: what would go to the Trash, what the policy refuses now,
// and the choice of a verified backup and a snapshot. It shows the model's pending request;
// confirming hands it back to the model, which checks everything again before each move.
class CleanupReviewDialog : public QDialog {
    Q_OBJECT
public:
    CleanupReviewDialog(AppModel& app, const CleanupRequest& request, QWidget* parent = nullptr);

    QPushButton* confirmButton() const { return confirm_; }
    QPushButton* cancelButton() const { return cancel_; }
    QTreeWidget* itemList() const { return items_; }
    // Absent when nothing is blocked.
    QTreeWidget* blockedList() const { return blockedList_; }
    QCheckBox* backupToggle() const { return backup_; }
    QCheckBox* snapshotToggle() const { return snapshot_; }
    static QString title(const CleanupRequest& request);
    // Cancel, Esc or closing the window: the review is dropped.
    void reject() override;

private:
    void updateConfirm();

    AppModel& app_;
    QTreeWidget* items_ = nullptr;
    QTreeWidget* blockedList_ = nullptr;
    QCheckBox* backup_ = nullptr;
    QCheckBox* snapshot_ = nullptr;
    QPushButton* confirm_ = nullptr;
    QPushButton* cancel_ = nullptr;
    bool blocked_ = false;
};

} // namespace tarnbridge::app
