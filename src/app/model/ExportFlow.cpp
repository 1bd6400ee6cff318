#include "app/model/ExportFlow.h"

#include "app/model/AppModel.h"
#include "app/model/BackgroundJob.h"
#include "app/model/Notices.h"
#include "app/model/ScanSession.h"
#include "cleanup/CSVExport.h"
#include "storage/ScanJson.h"

namespace tarnbridge::app {

ExportFlow::ExportFlow(AppModel& app) : QObject(&app), app_(app) {}

bool ExportFlow::canExport() const
{
    return app_.session().scan() && !app_.scanning() && !busy_;
}

void ExportFlow::exportScan()
{
    if (!canExport() || !app_.services().chooseFile)
        return;
    FileRequest request;
    request.title = QStringLiteral("Export Scan");
    request.suggestedName = QStringLiteral("Tarnbridge-scan.json");
    request.filter = QStringLiteral("Scan files (*.json)");
    const auto destination = app_.services().chooseFile(request);
    if (!destination)
        return;
    // The scan's records are shared, not copied: the task holds its own reference.
    const ScanResult scan = *app_.session().scan();
    launch(QStringLiteral("Scan exported."),
           [scan](const std::string& path, const CancellationFlag&) { ScanJson::writeFile(scan, path); },
           *destination);
}

std::optional<std::string> ExportFlow::chooseCSV()
{
    if (!canExport() || !app_.services().chooseFile)
        return std::nullopt;
    FileRequest request;
    request.title = QStringLiteral("Export CSV");
    request.suggestedName = QStringLiteral("Tarnbridge-files.csv");
    request.filter = QStringLiteral("CSV files (*.csv)");
    return app_.services().chooseFile(request);
}

void ExportFlow::exportCSV(std::vector<std::string> paths)
{
    const auto destination = chooseCSV();
    if (!destination)
        return;
    const ScanResult scan = *app_.session().scan();
    launch(QStringLiteral("CSV exported."),
           [scan, paths = std::move(paths)](const std::string& path, const CancellationFlag& flag) {
               CSVExport::write(paths, scan, path, flag);
           },
           *destination);
}

void ExportFlow::exportCSV(ScanResult scan, std::shared_ptr<const std::vector<NodeId>> ids)
{
    if (!ids)
        return;
    const auto destination = chooseCSV();
    if (!destination)
        return;
    launch(QStringLiteral("CSV exported."),
           [scan = std::move(scan), ids = std::move(ids)](const std::string& path, const CancellationFlag& flag) {
               CSVExport::write(*ids, scan, path, flag);
           },
           *destination);
}

void ExportFlow::launch(QString done, std::function<void(const std::string&, const CancellationFlag&)> write,
                        const std::string& destination)
{
    busy_ = true;
    cancellation_ = std::make_shared<CancellationFlag>();
    Q_EMIT changed();
    BackgroundJob::run<bool>(
        app_.workPool(), this, cancellation_,
        [write = std::move(write), destination](const CancellationFlag& flag) {
            write(destination, flag);
            return true;
        },
        [this, done = std::move(done)](JobOutcome<bool> outcome) {
            busy_ = false;
            if (outcome.value)
                app_.notices().setNotice(done);
            else if (outcome.error)
                app_.notices().setError(QString::fromStdString(*outcome.error));
            Q_EMIT changed();
        });
}

void ExportFlow::stopWork()
{
    if (cancellation_)
        cancellation_->cancel();
}

} // namespace tarnbridge::app
