#pragma once

#include <QWidget>

#include <vector>

#include "app/model/ActivityMonitor.h"

class QComboBox;
class QLabel;
class QProgressBar;
class QTreeWidget;
class QVBoxLayout;

namespace tarnbridge::app {

class AppModel;
class Tile;

// The machine now: processor, memory, network and volumes with their recent history, the
// busiest processes and the system snapshots. It only reads the model's latest sample.
class MonitorScreen : public QWidget {
    Q_OBJECT
public:
    explicit MonitorScreen(AppModel& app, QWidget* parent = nullptr);

    Tile* cpuTile() const { return cpu_; }
    Tile* memoryTile() const { return memory_; }
    Tile* networkTile() const { return network_; }
    Tile* storageTile() const { return storage_; }
    QTreeWidget* processList() const { return processes_; }
    QComboBox* processOrder() const { return order_; }
    // The small figures of a tile: "USER 12.5%" and the like, in order.
    QStringList smallFigures(const Tile* tile) const;

    // Applies the model's latest sample; public so that a benchmark can time it.
    void showSample();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void showProcesses();
    void showVolumes();
    void showSnapshots();

    AppModel& app_;
    Tile* cpu_ = nullptr;
    Tile* memory_ = nullptr;
    Tile* network_ = nullptr;
    Tile* storage_ = nullptr;
    std::vector<QLabel*> cpuFigures_;
    std::vector<QLabel*> memoryFigures_;
    std::vector<QLabel*> networkFigures_;
    QLabel* loadLine_ = nullptr;
    QLabel* cachedLine_ = nullptr;
    QLabel* sessionLine_ = nullptr;
    QVBoxLayout* volumes_ = nullptr;
    std::vector<std::string> shownVolumes_;
    QLabel* processTitle_ = nullptr;
    QLabel* processCount_ = nullptr;
    QComboBox* order_ = nullptr;
    QTreeWidget* processes_ = nullptr;
    QLabel* snapshotStatus_ = nullptr;
    QLabel* snapshotNames_ = nullptr;
};

} // namespace tarnbridge::app
