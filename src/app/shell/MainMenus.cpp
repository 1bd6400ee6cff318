#include "app/shell/MainMenus.h"

#include <QActionGroup>
#include <QApplication>
#include <QMainWindow>
#include <QMenuBar>

#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/model/ExportFlow.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "app/model/SnapshotFlow.h"
#include "app/shell/ShellTexts.h"

namespace tarnbridge::app {

MainMenus::MainMenus(AppModel& app, QMainWindow& window, std::function<void()> focusFilter,
                     std::function<void()> openSettings)
    : QObject(&window)
    , app_(app) {
    buildFile(window, std::move(openSettings));
    buildView(window, std::move(focusFilter));
    buildGo(window);
    buildStorage(window);

    auto& session = app_.session();
    for (auto signal :
         {&ScanSession::scanChanged, &ScanSession::progressChanged, &ScanSession::focusChanged})
        connect(&session, signal, this, &MainMenus::updateEnabled);
    connect(&app_.cleanup(), &CleanupFlow::changed, this, &MainMenus::updateEnabled);
    connect(&app_.snapshots(), &SnapshotFlow::changed, this, &MainMenus::updateEnabled);
    connect(&app_.exports(), &ExportFlow::changed, this, &MainMenus::updateEnabled);
    connect(&app_.explore(), &ExploreState::filtersChanged, this, &MainMenus::updateEnabled);
    connect(&app_.explore(), &ExploreState::displayChanged, this, &MainMenus::updateEnabled);
    connect(&app_, &AppModel::sectionChanged, this, &MainMenus::updateEnabled);
    connect(&app_.preferences(), &Preferences::changed, this, &MainMenus::updateEnabled);
    updateEnabled();
}

QAction* MainMenus::add(QMenu* menu, const QString& label, const QKeySequence& key,
                        std::function<void()> run) {
    QAction* action = menu->addAction(label);
    action->setShortcut(key);
    connect(action, &QAction::triggered, this, std::move(run));
    return action;
}

void MainMenus::buildFile(QMainWindow& window, std::function<void()> openSettings) {
    QMenu* menu = window.menuBar()->addMenu(QStringLiteral("&File"));
    auto& session = app_.session();
    openFolder = add(menu, QStringLiteral("Open Folder…"), QKeySequence(Qt::CTRL | Qt::Key_O),
                     [&session] { session.chooseFolder(false, false); });
    openScanFile = add(menu, QStringLiteral("Open Scan File…"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O),
                       [this] { app_.snapshots().openScanFile(); });
    scanFolder = add(menu, QStringLiteral("Scan Folder…"), {},
                     [&session] { session.chooseFolder(false, true); });
    scanWholeDisk =
        add(menu, QStringLiteral("Scan Whole Disk"), {}, [&session] { session.startScan("/"); });
    menu->addSeparator();
    rescan = add(menu, QStringLiteral("Rescan Current Scan"), QKeySequence(Qt::CTRL | Qt::Key_R),
                 [&session] { session.refresh(); });
    cancelScan = add(menu, QStringLiteral("Cancel Scan"), QKeySequence(Qt::CTRL | Qt::Key_Period),
                     [&session] { session.cancelScan(); });
    menu->addSeparator();
    saveSnapshot =
        add(menu, QStringLiteral("Save Current Scan Snapshot"), QKeySequence(Qt::CTRL | Qt::Key_S),
            [this] { app_.snapshots().saveSnapshot(); });
    exportScan = add(menu, QStringLiteral("Export Scan…"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_E),
                     [this] { app_.exports().exportScan(); });
    reviewCleanup = add(menu, QStringLiteral("Review Cleanup"), QKeySequence(Qt::CTRL | Qt::Key_K),
                        [this] {
                            app_.setSection(AppSection::cleanup);
                            app_.cleanup().requestCleanup();
                        });
    menu->addSeparator();
    settings = add(menu, QStringLiteral("Settings…"), QKeySequence(Qt::CTRL | Qt::Key_Comma),
                   std::move(openSettings));
    settings->setMenuRole(QAction::PreferencesRole);
    menu->addSeparator();
    quit = add(menu, QStringLiteral("Quit"), QKeySequence(Qt::CTRL | Qt::Key_Q),
               [&window] { window.close(); });
    quit->setIcon(ShellTexts::icon("application-exit"));
    quit->setMenuRole(QAction::QuitRole);
}

void MainMenus::buildView(QMainWindow& window, std::function<void()> focusFilter) {
    QMenu* menu = window.menuBar()->addMenu(QStringLiteral("&View"));
    showHidden = add(menu, QStringLiteral("Show hidden files"),
                     QKeySequence(Qt::CTRL | Qt::Key_H),
                     [this] { app_.explore().setShowHidden(showHidden->isChecked()); });
    showHidden->setCheckable(true);
    findFilter =
        add(menu, QStringLiteral("Filter by name"), QKeySequence::Find, std::move(focusFilter));
    menu->addSeparator();
    for (AppSection section : ShellTexts::kSections) {
        QAction* action =
            menu->addAction(ShellTexts::sectionIcon(section), ShellTexts::sectionName(section));
        connect(action, &QAction::triggered, this, [this, section] { app_.setSection(section); });
    }
}

void MainMenus::buildGo(QMainWindow& window) {
    QMenu* menu = window.menuBar()->addMenu(QStringLiteral("&Go"));
    auto& session = app_.session();
    back = add(menu, QStringLiteral("Back"), QKeySequence(Qt::ALT | Qt::Key_Left),
               [&session] { session.goBack(); });
    forward = add(menu, QStringLiteral("Forward"), QKeySequence(Qt::ALT | Qt::Key_Right),
                  [&session] { session.goForward(); });
    parent = add(menu, QStringLiteral("Enclosing Folder"), QKeySequence(Qt::ALT | Qt::Key_Up),
                 [&session] { session.goUp(); });
    menu->addSeparator();
    home = add(menu, QStringLiteral("Home"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_H),
               [this] { app_.session().browseLocation(app_.services().home); });
    home->setShortcuts({QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_H), QKeySequence(Qt::ALT | Qt::Key_Home)});
}

void MainMenus::buildStorage(QMainWindow& window) {
    QMenu* menu = window.menuBar()->addMenu(QStringLiteral("&Storage"));
    auto* group = new QActionGroup(this);
    for (StorageView view : ShellTexts::kStorageViews) {
        QAction* action = menu->addAction(ShellTexts::storageViewName(view));
        action->setCheckable(true);
        group->addAction(action);
        connect(action, &QAction::triggered, this, [this, view] {
            app_.setSection(AppSection::explore);
            app_.explore().setStorageView(view);
        });
        storageViews_.push_back(action);
    }
}

void MainMenus::updateEnabled() {
    const auto& session = app_.session();
    const bool hasScan = bool(session.scan());
    const bool scanning = app_.scanning();
    rescan->setEnabled(hasScan && !scanning);
    cancelScan->setEnabled(scanning);
    saveSnapshot->setEnabled(hasScan && !scanning && !app_.snapshotBusy() &&
                             app_.preferences().snapshotsEnabled());
    exportScan->setEnabled(app_.exports().canExport());
    openScanFile->setEnabled(!scanning && !app_.snapshotBusy() && !app_.cleaning());
    reviewCleanup->setEnabled(!app_.cleanup().queue().empty() && !app_.cleaning());
    const auto& navigation = session.displayedNavigation();
    back->setEnabled(!navigation.back.empty());
    forward->setEnabled(!navigation.forward.empty());
    parent->setEnabled(session.canGoUp());
    showHidden->setChecked(app_.explore().showHidden());
    const int view = int(app_.explore().storageView());
    if (view >= 0 && std::size_t(view) < storageViews_.size())
        storageViews_[std::size_t(view)]->setChecked(true);
}

} // namespace tarnbridge::app
