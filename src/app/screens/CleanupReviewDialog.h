#pragma once

#include <QDialog>

class QCheckBox;
class QLabel;
class QListWidget;
class QPushButton;

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
    // Cancel, Esc or closing the window: the review is dropped.
    void reject() override;

private:
    void updateConfirm();

    AppModel& app_;
    QCheckBox* backup_ = nullptr;
    QCheckBox* snapshot_ = nullptr;
    QPushButton* confirm_ = nullptr;
    QPushButton* cancel_ = nullptr;
    bool blocked_ = false;
};

} // namespace tarnbridge::app
