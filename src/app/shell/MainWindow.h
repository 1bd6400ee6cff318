#pragma once

#include <QMainWindow>
#include <QPointer>

#include <map>

#include "app/model/AppTypes.h"

class QMessageBox;
class QSettings;
class QSplitter;
class QStackedWidget;
class QDialog;

namespace tarnbridge::app {

class AppModel;
class CleanupReviewDialog;
class Footer;
class InspectorPanel;
class MainMenus;
class SettingsDialog;
class Sidebar;
class ToastCard;
class TopBar;

// The one window: sidebar, top bar, the section's screen, footer and the floating toast, over
// the one model of the run. `settings`, when given, keeps the window's size and the splitter.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(AppModel& app, QSettings* settings = nullptr, QWidget* parent = nullptr);
    ~MainWindow() override;

    AppModel& model() { return app_; }
    MainMenus& menus() { return *menus_; }
    TopBar& topBar() { return *topBar_; }
    QWidget* currentScreen() const;
    // The open alert of the model's error, if any.
    QMessageBox* errorBox() const { return errorBox_; }
    // The open "Scan access details", if any.
    QDialog* issuesDialog() const { return issues_; }
    // The open cleanup review, if any.
    CleanupReviewDialog* reviewDialog() const;
    InspectorPanel& inspector() { return *inspector_; }
    // The settings form, opened once and raised when asked again.
    SettingsDialog& openSettings();

    static constexpr QSize kDefaultSize{1280, 800};
    static constexpr QSize kMinimumSize{960, 600};

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QWidget* makeScreen(AppSection section);
    void showSection();
    // Opens the review while the model has a request pending, and closes it when it has none.
    void showReview();
    void showError();
    void showIssues();
    // The inspector stands beside a finished scan in the explore section, when it is on.
    void showInspector();
    void placeToast();
    void restoreLayout();

    AppModel& app_;
    QSettings* settings_;
    MainMenus* menus_ = nullptr;
    Sidebar* sidebar_ = nullptr;
    TopBar* topBar_ = nullptr;
    Footer* footer_ = nullptr;
    QSplitter* splitter_ = nullptr;
    InspectorPanel* inspector_ = nullptr;
    QStackedWidget* screens_ = nullptr;
    std::map<AppSection, QWidget*> screenOf_;
    ToastCard* toast_ = nullptr;
    QMessageBox* errorBox_ = nullptr;
    QDialog* issues_ = nullptr;
    QPointer<SettingsDialog> settingsDialog_; // gone once closed
    QPointer<CleanupReviewDialog> review_;
};

} // namespace tarnbridge::app
