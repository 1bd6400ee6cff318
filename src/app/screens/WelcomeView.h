#pragma once

#include "app/screens/EmptyState.h"

class QPushButton;

namespace tarnbridge::app {

class AppModel;

// What explore shows before the first scan: the ways to start one.
class WelcomeView : public EmptyState {
    Q_OBJECT
public:
    explicit WelcomeView(AppModel& app, QWidget* parent = nullptr);

private:
    void showLastScan();

    AppModel& app_;
    QPushButton* lastScan_ = nullptr;
};

} // namespace tarnbridge::app
