#include "app/model/AppModel.h"

#include <QSettings>

#include "app/model/ActivityMonitor.h"
#include "app/model/ApplicationsFlow.h"
#include "app/model/CleanupFlow.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/ExploreState.h"
#include "app/model/ExportFlow.h"
#include "app/model/FileTableState.h"
#include "app/model/TopSizesState.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "app/model/SnapshotFlow.h"
#include "model/Errors.h"
#include "platform/UserFolders.h"
#include "scan/DiskScanner.h"

namespace tarnbridge::app {

namespace {

AppServices completed(AppServices services)
{
    if (services.home.empty())
        services.home = platform::currentHome();
    if (!services.makeSampler) {
        services.makeSampler = [] {
            auto sampler = std::make_shared<SystemSampler>();
            return std::function<MonitorSample()>([sampler] { return sampler->sample(); });
        };
    }
    if (!services.scan)
        services.scan = [](const std::string& root, const CancellationFlag& flag, ScanNavigation* navigation,
                           const ScanProgressCallback& progress) {
            return DiskScanner::scan(root, flag, navigation, progress);
        };
    if (!services.systemSnapshots)
        services.systemSnapshots = [](const std::string& volume) { return SystemSampler::timeMachineSnapshots(volume); };
    return services;
}

} // namespace

AppModel::AppModel(SnapshotStore store, std::string stateDirectory, bool monitorEnabled, QSettings& settings,
                   AppServices services, QObject* parent)
    : QObject(parent), store_(std::move(store)), stateDirectory_(std::move(stateDirectory)),
      services_(completed(std::move(services)))
{
    // A superseded scan may still be stopping while the next one starts.
    scanPool_.setMaxThreadCount(2);
    monitorPool_.setMaxThreadCount(1);
    preferences_ = std::make_unique<Preferences>(settings, this);
    notices_ = std::make_unique<Notices>(*this);
    session_ = std::make_unique<ScanSession>(*this);
    explore_ = std::make_unique<ExploreState>(*this);
    cleanup_ = std::make_unique<CleanupFlow>(*this);
    duplicates_ = std::make_unique<DuplicateSearch>(*this);
    applications_ = std::make_unique<ApplicationsFlow>(*this);
    snapshots_ = std::make_unique<SnapshotFlow>(*this);
    monitor_ = std::make_unique<ActivityMonitor>(*this);
    exports_ = std::make_unique<ExportFlow>(*this);
    table_ = std::make_unique<FileTableState>(*this);
    topSizes_ = std::make_unique<TopSizesState>(*this);

    // A damaged file neither stops the start nor loses the rest: that part starts empty, and
    // each message names it.
    std::vector<std::string> messages;
    try {
        snapshots_->readSnapshotCatalog();
    } catch (const std::exception& error) {
        messages.push_back("Saved scans: " + describeError(error));
    }
    for (std::string& message : cleanup_->loadState())
        messages.push_back(std::move(message));
    if (!messages.empty()) {
        QString text;
        for (const std::string& message : messages)
            text += (text.isEmpty() ? QString() : QStringLiteral("\n")) + QString::fromStdString(message);
        notices_->setError(text);
    }
    if (monitorEnabled)
        monitor_->start();
}

AppModel::~AppModel()
{
    // Every job delivers to one of the parts: stop them all and wait, so that nothing arrives
    // at a part that is gone.
    session_->stopWork();
    cleanup_->stopWork();
    duplicates_->stopWork();
    applications_->stopWork();
    snapshots_->stopWork();
    monitor_->stopWork();
    exports_->stopWork();
    scanPool_.waitForDone();
    workPool_.waitForDone();
    monitorPool_.waitForDone();
}

bool AppModel::scanning() const { return session_->scanning(); }
bool AppModel::cleaning() const { return cleanup_->cleaning(); }
bool AppModel::staging() const { return cleanup_->staging(); }
bool AppModel::snapshotBusy() const { return snapshots_->busy(); }

bool AppModel::canClean() const
{
    return session_->scan() && !session_->isHistorical() && !scanning() && !cleaning() && !staging() &&
           !snapshotBusy();
}

void AppModel::setSection(AppSection section)
{
    if (section_ != section) {
        section_ = section;
        Q_EMIT sectionChanged();
    }
}

} // namespace tarnbridge::app
