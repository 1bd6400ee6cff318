#pragma once

#include <QObject>
#include <QThreadPool>

#include <memory>
#include <string>

#include "app/model/AppTypes.h"
#include "snapshots/SnapshotStore.h"

class QSettings;

namespace tarnbridge::app {

class ScanSession;
class ExploreState;
class CleanupFlow;
class DuplicateSearch;
class ApplicationsFlow;
class SnapshotFlow;
class ActivityMonitor;
class ExportFlow;
class FileTableState;
class TopSizesState;
class Notices;
class Preferences;

// The one owner of what the user sees. It lives on the GUI thread; every screen holds a
// reference to it, reads its parts and calls their operations. Each part notifies through its
// own signals; the guards that cross parts are read here.
class AppModel : public QObject {
    Q_OBJECT
public:
    // `settings` holds the preferences; `stateDirectory` the queue, receipts and backups;
    // `store` the saved scans. The start reads them all (their load messages end in `error`)
    // and, when `monitorEnabled`, starts the monitor loop.
    AppModel(SnapshotStore store, std::string stateDirectory, bool monitorEnabled, QSettings& settings,
             AppServices services = {}, QObject* parent = nullptr);
    ~AppModel() override;

    ScanSession& session() { return *session_; }
    ExploreState& explore() { return *explore_; }
    CleanupFlow& cleanup() { return *cleanup_; }
    DuplicateSearch& duplicates() { return *duplicates_; }
    ApplicationsFlow& applications() { return *applications_; }
    SnapshotFlow& snapshots() { return *snapshots_; }
    ActivityMonitor& monitor() { return *monitor_; }
    ExportFlow& exports() { return *exports_; }
    FileTableState& table() { return *table_; }
    TopSizesState& topSizes() { return *topSizes_; }
    Notices& notices() { return *notices_; }
    Preferences& preferences() { return *preferences_; }
    const ScanSession& session() const { return *session_; }
    const ExploreState& explore() const { return *explore_; }
    const CleanupFlow& cleanup() const { return *cleanup_; }
    const DuplicateSearch& duplicates() const { return *duplicates_; }
    const SnapshotFlow& snapshots() const { return *snapshots_; }
    const Notices& notices() const { return *notices_; }
    const Preferences& preferences() const { return *preferences_; }

    const SnapshotStore& store() const { return store_; }
    const std::string& stateDirectory() const { return stateDirectory_; }
    const AppServices& services() const { return services_; }

    // The work locks that cross parts.
    bool scanning() const;
    bool cleaning() const;
    bool staging() const;
    bool snapshotBusy() const;
    // A current scan that may feed the queue: not a saved one, not taken before a cleanup, and
    // no scan, cleanup, staging or snapshot work running.
    bool canClean() const;

    AppSection section() const { return section_; }
    void setSection(AppSection section);

    // Scans run on a pool of their own, so that a scan never waits behind a query.
    QThreadPool& scanPool() { return scanPool_; }
    QThreadPool& workPool() { return workPool_; }
    // One thread for the monitor's readings, so that long searches never delay them.
    QThreadPool& monitorPool() { return monitorPool_; }

Q_SIGNALS:
    void sectionChanged();

private:
    SnapshotStore store_;
    std::string stateDirectory_;
    AppServices services_;
    AppSection section_ = AppSection::explore;
    QThreadPool scanPool_;
    QThreadPool workPool_;
    QThreadPool monitorPool_;
    std::unique_ptr<Preferences> preferences_;
    std::unique_ptr<Notices> notices_;
    std::unique_ptr<ScanSession> session_;
    std::unique_ptr<ExploreState> explore_;
    std::unique_ptr<CleanupFlow> cleanup_;
    std::unique_ptr<DuplicateSearch> duplicates_;
    std::unique_ptr<ApplicationsFlow> applications_;
    std::unique_ptr<SnapshotFlow> snapshots_;
    std::unique_ptr<ActivityMonitor> monitor_;
    std::unique_ptr<ExportFlow> exports_;
    std::unique_ptr<FileTableState> table_;
    std::unique_ptr<TopSizesState> topSizes_;
};

} // namespace tarnbridge::app
