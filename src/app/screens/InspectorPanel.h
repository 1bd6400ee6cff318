#pragma once

#include <QWidget>

#include <optional>

#include "model/DiskNode.h"

class QFormLayout;
class QLabel;
class QListWidget;
class QListWidgetItem;
class QPushButton;

namespace tarnbridge::app {

class AppModel;

// The panel beside the explore screen: the selected record, else the focus, with its sizes,
// dates, share of its parent, largest children and actions.
class InspectorPanel : public QWidget {
    Q_OBJECT
public:
    explicit InspectorPanel(AppModel& app, QWidget* parent = nullptr);

    // The record shown; nothing without a scan.
    const std::optional<DiskNode>& shown() const { return shown_; }

    static constexpr int kLargestRows = 8;

private:
    void refresh();
    void fillDetails(const DiskNode& node);
    void fillLargest(const DiskNode& node);
    void openLargest(QListWidgetItem* item);

    AppModel& app_;
    std::optional<DiskNode> shown_;
    QLabel* title_ = nullptr;
    QLabel* path_ = nullptr;
    QLabel* chips_ = nullptr;
    QFormLayout* details_ = nullptr;
    QLabel* largestTitle_ = nullptr;
    QListWidget* largest_ = nullptr;
    QLabel* largestEmpty_ = nullptr;
    QPushButton* reveal_ = nullptr;
    QPushButton* copy_ = nullptr;
    QPushButton* stage_ = nullptr;
    QLabel* empty_ = nullptr;
    QWidget* body_ = nullptr;
};

} // namespace tarnbridge::app
