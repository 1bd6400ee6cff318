#pragma once

#include <QObject>
#include <QString>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/CancellationFlag.h"
#include "model/ScanResult.h"

namespace tarnbridge::app {

class AppModel;

// Writes the current scan, or rows of it, to a file the user chooses: the scan as our JSON, rows
// as CSV. The writing runs off the GUI thread and replaces the destination only when complete.
class ExportFlow : public QObject {
    Q_OBJECT
public:
    explicit ExportFlow(AppModel& app);

    bool busy() const { return busy_; }
    // A finished scan to write and no export already running.
    bool canExport() const;

    void exportScan();
    // The records of `paths`, in their order; paths the scan does not know are left out.
    void exportCSV(std::vector<std::string> paths);
    // Rows of `scan` by id, in their order: a table of a million rows makes no strings for this.
    void exportCSV(ScanResult scan, std::shared_ptr<const std::vector<NodeId>> ids);

    void stopWork();

Q_SIGNALS:
    void changed();

private:
    std::optional<std::string> chooseCSV();
    void launch(QString done, std::function<void(const std::string&, const CancellationFlag&)> write,
                const std::string& destination);

    AppModel& app_;
    bool busy_ = false;
    std::shared_ptr<CancellationFlag> cancellation_;
};

} // namespace tarnbridge::app
