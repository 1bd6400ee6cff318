#pragma once

#include <QWidget>

class QLabel;
class QToolButton;

namespace tarnbridge::app {

class AppModel;

// The product and its status word, the notice line, and the way to the cleanup queue.
class Footer : public QWidget {
    Q_OBJECT
public:
    explicit Footer(AppModel& app, QWidget* parent = nullptr);

private:
    void showStatus();
    void showNotice();
    void showQueue();

    AppModel& app_;
    QLabel* status_ = nullptr;
    QWidget* notice_ = nullptr;
    QLabel* noticeText_ = nullptr;
    QToolButton* cleanup_ = nullptr;
};

} // namespace tarnbridge::app
