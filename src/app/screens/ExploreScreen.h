#pragma once

#include <QStackedWidget>

namespace tarnbridge::app {

class AppModel;
class ScanProgressView;
class WelcomeView;

// Explore by state: the running scan's progress, the welcome before any scan, else the
// folder bar over the chart of the focus.
class ExploreScreen : public QStackedWidget {
    Q_OBJECT
public:
    explicit ExploreScreen(AppModel& app, QWidget* parent = nullptr);

private:
    void showState();
    void showView();

    AppModel& app_;
    WelcomeView* welcome_ = nullptr;
    ScanProgressView* progress_ = nullptr;
    QWidget* content_ = nullptr;
    QStackedWidget* views_ = nullptr;
    QWidget* graph_ = nullptr;
    QWidget* table_ = nullptr;
    QWidget* topSizes_ = nullptr;
    QWidget* folders_ = nullptr;
    QWidget* ageMap_ = nullptr;
    QWidget* quickWin_ = nullptr;
};

} // namespace tarnbridge::app
