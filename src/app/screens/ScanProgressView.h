#pragma once

#include <QWidget>

#include <string>
#include <vector>

class QLabel;
class QTreeWidget;
class QStackedWidget;

namespace tarnbridge {
struct DiskNode;
}

namespace tarnbridge::app {

class AppModel;
class EmptyState;

// The running scan: its counts, the folder being browsed and that folder's children so far.
class ScanProgressView : public QWidget {
    Q_OBJECT
public:
    explicit ScanProgressView(AppModel& app, QWidget* parent = nullptr);

    // Rows beyond this are not listed: the list is rebuilt on every progress record.
    static constexpr int kRowLimit = 300;

private:
    void showProgress();
    void showList(const std::vector<DiskNode>& children, bool requestedArrived);

    AppModel& app_;
    QLabel* heading_ = nullptr;
    QWidget* counts_ = nullptr;
    QLabel* files_ = nullptr;
    QLabel* folders_ = nullptr;
    QLabel* bytes_ = nullptr;
    QLabel* path_ = nullptr;
    QLabel* folder_ = nullptr;
    QWidget* chart_ = nullptr;
    QLabel* chartCaption_ = nullptr;
    QStackedWidget* body_ = nullptr;
    QTreeWidget* list_ = nullptr;
    EmptyState* empty_ = nullptr;
    std::vector<std::string> rowPaths_;
};

} // namespace tarnbridge::app
