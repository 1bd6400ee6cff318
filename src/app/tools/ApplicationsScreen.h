#pragma once

#include <QHash>
#include <QIcon>
#include <QWidget>

#include <vector>

#include "applications/ApplicationInventory.h"

class QCheckBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTreeWidget;
class QVBoxLayout;

namespace tarnbridge::app {

class AppModel;
class EmptyState;

// Installed applications with what they leave in the user's folders, their uninstall through
// the cleanup review, and the leftovers of applications that are gone.
class ApplicationsScreen : public QWidget {
    Q_OBJECT
public:
    explicit ApplicationsScreen(AppModel& app, QWidget* parent = nullptr);

    QTreeWidget* appList() const { return apps_; }
    QTreeWidget* supportList() const { return support_; }
    QTreeWidget* leftoverList() const { return leftovers_; }
    QCheckBox* showSystem() const { return showSystem_; }
    QCheckBox* showOrphans() const { return showOrphans_; }
    QLineEdit* searchField() const { return search_; }
    QPushButton* uninstallButton() const { return uninstall_; }
    // The pane shown on the right: the placeholder, an application or the leftovers.
    QWidget* currentPane() const;
    QWidget* applicationPane() const { return appPane_; }
    QWidget* leftoverPane() const { return leftoverPane_; }

    // The applications the list shows, in order.
    std::vector<const InstalledApplication*> shownApplications() const;

    // The desktop entry's icon: a file path, or a name in the icon theme.
    static QIcon applicationIcon(const std::string& icon);

protected:
    void showEvent(QShowEvent* event) override;

private:
    void connectControls();
    void refresh();
    void showHeader();
    void showList();
    void showPane();
    void showApplication(const InstalledApplication& application);
    void showLeftovers();

    AppModel& app_;
    QLabel* measuring_ = nullptr;
    QPushButton* cancel_ = nullptr;
    QPushButton* rescan_ = nullptr;
    QLabel* notes_ = nullptr;
    QLineEdit* search_ = nullptr;
    QCheckBox* showSystem_ = nullptr;
    QCheckBox* showOrphans_ = nullptr;
    QLabel* listHeading_ = nullptr;
    QTreeWidget* apps_ = nullptr;
    QWidget* noMatch_ = nullptr;
    QPushButton* clearSearch_ = nullptr;
    QStackedWidget* panes_ = nullptr;
    EmptyState* placeholder_ = nullptr;
    QWidget* appPane_ = nullptr;
    QLabel* appName_ = nullptr;
    QLabel* appIdentity_ = nullptr;
    QLabel* appPath_ = nullptr;
    QLabel* appUsed_ = nullptr;
    QLabel* footprint_ = nullptr;
    QProgressBar* split_ = nullptr;
    QLabel* bundleLegend_ = nullptr;
    QLabel* supportLegend_ = nullptr;
    QLabel* incomplete_ = nullptr;
    QPushButton* uninstall_ = nullptr;
    QLabel* noSupport_ = nullptr;
    QTreeWidget* support_ = nullptr;
    QWidget* leftoverPane_ = nullptr;
    QTreeWidget* leftovers_ = nullptr;
};

} // namespace tarnbridge::app
