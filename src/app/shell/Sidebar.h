#pragma once

#include <QScrollArea>

class QLabel;
class QListWidget;
class QProgressBar;
class QGridLayout;
class QVBoxLayout;
class QWidget;

namespace tarnbridge::app {

class AppModel;

// The sections, the scan actions and places, the mounted volumes, and a summary of the disk,
// the file types and the current scan.
class Sidebar : public QScrollArea {
    Q_OBJECT
public:
    explicit Sidebar(AppModel& app, QWidget* parent = nullptr);

private:
    QWidget* makeSections();
    QWidget* makeActions();
    QWidget* makePlaces();
    QWidget* makeVolumes();
    QWidget* makeSummary();
    void showSection();
    void showDisk();
    void showTypes();
    void showQuickWins();
    void showScanLine();

    AppModel& app_;
    QListWidget* sections_ = nullptr;
    QLabel* diskLine_ = nullptr;
    QProgressBar* diskMeter_ = nullptr;
    QGridLayout* types_ = nullptr;
    QWidget* winsBlock_ = nullptr;
    QVBoxLayout* wins_ = nullptr;
    QLabel* scanName_ = nullptr;
    QLabel* scanState_ = nullptr;
    QWidget* issues_ = nullptr;
};

} // namespace tarnbridge::app
