#pragma once

#include <QFrame>

class QLabel;
class QPushButton;

namespace tarnbridge::app {

class AppModel;

// The model's toast as a small card; the window keeps it over the content's lower right corner.
class ToastCard : public QFrame {
    Q_OBJECT
public:
    explicit ToastCard(AppModel& app, QWidget* parent = nullptr);

Q_SIGNALS:
    void shown(); // the toast changed: the window places the card again

private:
    void showToast();

    AppModel& app_;
    QLabel* title_ = nullptr;
    QLabel* detail_ = nullptr;
    QPushButton* action_ = nullptr;
};

} // namespace tarnbridge::app
