#pragma once

#include <QObject>

#include <functional>

class QAction;
class QMainWindow;
class QMenu;

namespace tarnbridge::app {

class AppModel;

// The menu bar's commands with their keys, each calling one model operation and enabled by the
// model's state.
class MainMenus : public QObject {
    Q_OBJECT
public:
    // `focusFilter` puts the keyboard in the filter field (Ctrl+F); `openSettings` shows the form.
    MainMenus(AppModel& app, QMainWindow& window, std::function<void()> focusFilter,
              std::function<void()> openSettings);

    QAction* openFolder = nullptr;
    QAction* openScanFile = nullptr;
    QAction* scanFolder = nullptr;
    QAction* scanWholeDisk = nullptr;
    QAction* home = nullptr;
    QAction* rescan = nullptr;
    QAction* cancelScan = nullptr;
    QAction* saveSnapshot = nullptr;
    QAction* exportScan = nullptr;
    QAction* reviewCleanup = nullptr;
    QAction* showHidden = nullptr;
    QAction* back = nullptr;
    QAction* forward = nullptr;
    QAction* parent = nullptr;
    QAction* findFilter = nullptr;
    QAction* settings = nullptr;
    QAction* quit = nullptr;

private:
    QAction* add(QMenu* menu, const QString& label, const QKeySequence& key,
                 std::function<void()> run);
    void buildFile(QMainWindow& window, std::function<void()> openSettings);
    void buildView(QMainWindow& window, std::function<void()> focusFilter);
    void buildGo(QMainWindow& window);
    void buildStorage(QMainWindow& window);
    void updateEnabled();

    AppModel& app_;
    std::vector<QAction*> storageViews_;
};

} // namespace tarnbridge::app
