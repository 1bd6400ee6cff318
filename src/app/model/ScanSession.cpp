#include "app/model/ScanSession.h"

#include <algorithm>

#include "app/model/AppModel.h"
#include "app/model/BackgroundJob.h"
#include "app/model/CleanupFlow.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/ExploreState.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/model/SnapshotFlow.h"
#include "app/model/ActivityMonitor.h"
#include "model/PathText.h"
#include "model/ScanPaths.h"
#include "platform/AtomicFile.h"

namespace tarnbridge::app {

namespace {

const QString kNotInScan = QStringLiteral("This folder isn’t in the current scan — use Scan Whole Disk or Scan Folder….");

} // namespace

struct ScanSession::Outcome {
    ScanResult result;
    ScanPresentation presentation;
};

ScanSession::ScanSession(AppModel& app) : QObject(&app), app_(app) {}

ScanSession::~ScanSession() = default;

QString ScanSession::rootName(const std::string& path) const
{
    if (path == "/")
        return QStringLiteral("Whole Disk");
    if (path == app_.services().home)
        return QStringLiteral("Home");
    const std::string_view name = PathText::name(path);
    if (name.empty() || name == "/")
        return QStringLiteral("System Disk");
    return displayText(name);
}

QString ScanSession::cancelledNotice() const
{
    return scan_ ? QStringLiteral("Scan cancelled. Your previous result is still available.")
                 : QStringLiteral("Scan cancelled. Choose a location to start again.");
}

void ScanSession::startScan(const std::string& path, bool thenFindDuplicates)
{
    if (app_.cleaning())
        return;
    app_.cleanup().cancelStaging();
    scanCancellation_->cancel();
    app_.duplicates().resetForScan(thenFindDuplicates);
    app_.snapshots().supersede();

    scanCancellation_ = std::make_shared<CancellationFlag>();
    scanNavigation_ = std::make_shared<ScanNavigation>();
    liveFocusPath_.reset();
    const QUuid token = QUuid::createUuid();
    scanGeneration_ = token;
    scanning_ = true;
    setProgress(nullptr);
    scanRootName_ = rootName(path);
    ExploreState& explore = app_.explore();
    if (!showsDuringScan(explore.storageView()))
        explore.setStorageView(StorageView::treemap);
    scanRootPath_ = path;
    liveNavigation_.reset(path);
    app_.setSection(thenFindDuplicates ? AppSection::duplicates : AppSection::explore);
    explore.setActiveQuickWin(std::nullopt);
    explore.setFilter(QString());
    app_.notices().setNotice(std::nullopt);
    Q_EMIT progressChanged();
    Q_EMIT focusChanged();

    // The progress callback runs on the scanning thread; each record is applied on the GUI
    // thread only if this run is still the current one when it gets there.
    auto progress = [this, token](const ScanProgress& record) {
        auto shared = std::make_shared<const ScanProgress>(record);
        BackgroundJob::post(this, [this, token, shared]() mutable { applyProgress(token, std::move(shared)); });
    };
    BackgroundJob::run<Outcome>(
        app_.scanPool(), this, scanCancellation_,
        [path, navigation = scanNavigation_, progress, scan = app_.services().scan](const CancellationFlag& flag) {
            ScanResult result = scan(path, flag, navigation.get(), progress);
            flag.check();
            ScanPresentation presentation = ScanPresentation::make(result, &flag);
            flag.check();
            return Outcome{std::move(result), std::move(presentation)};
        },
        [this, token](JobOutcome<Outcome> outcome) {
            if (outcome.value)
                finish(token, std::move(outcome.value->result), std::move(outcome.value->presentation));
            else
                fail(token, outcome.error);
        });
}

void ScanSession::applyProgress(const QUuid& token, std::shared_ptr<const ScanProgress> record)
{
    if (scanGeneration_ != token || !scanning_)
        return;
    setProgress(std::move(record));
    const ScanProgress& progress = *scanProgress_;
    if (progress.browsing && progress.browsing->rootPath != scanRootPath_) {
        // The root reached the scanner through realpath: carry the live history over.
        const std::string newRoot = progress.browsing->rootPath;
        scanRootPath_ = newRoot;
        liveNavigation_ = liveNavigation_.resolvingPaths([&](const std::string& path) -> std::optional<std::string> {
            for (const std::string& candidate : ScanPaths::candidates(path))
                if (ScanResult::contains(candidate, newRoot))
                    return candidate;
            return std::nullopt;
        });
        if (liveFocusPath_)
            liveFocusPath_ = liveNavigation_.current;
    }
    if (progress.browsing && liveFocusPath_) {
        // Adopt the spelling the scanner uses.
        const std::string& folder = progress.browsing->folder.path;
        const auto candidates = ScanPaths::candidates(*liveFocusPath_);
        if (std::find(candidates.begin(), candidates.end(), folder) != candidates.end())
            liveFocusPath_ = folder;
    }
    Q_EMIT progressChanged();
}

void ScanSession::setProgress(std::shared_ptr<const ScanProgress> record)
{
    // A record holds a preview of up to a whole folder: the one it replaces is freed on a
    // worker, not on the GUI thread.
    if (scanProgress_)
        app_.workPool().start([old = std::move(scanProgress_)] {});
    scanProgress_ = std::move(record);
}

void ScanSession::finish(const QUuid& token, ScanResult result, ScanPresentation presentation)
{
    if (scanGeneration_ != token)
        return;
    std::string focus = result.rootPath();
    if (liveFocusPath_)
        if (const auto record = result.directory(*liveFocusPath_))
            focus = record->path;
    const FolderNavigationHistory rewritten =
        liveNavigation_.resolvingPaths([&](const std::string& path) -> std::optional<std::string> {
            if (const auto record = result.directory(path))
                return record->path;
            return std::nullopt;
        });
    const std::string root = result.rootPath();
    const double duration = result.duration();
    const std::int64_t skipped = result.skippedCount();
    installScan(std::move(result), std::move(presentation), focus, false);
    if (rewritten.current == focus) {
        navigation_ = rewritten;
        Q_EMIT focusChanged();
    }
    scanning_ = false;
    setProgress(nullptr);
    Q_EMIT progressChanged();
    app_.preferences().addRecent(QString::fromStdString(root));
    Q_EMIT recentChanged();
    app_.notices().setNotice(skipped >= 1
                                 ? QStringLiteral("Scan complete — ") + QString::number(skipped) +
                                       QStringLiteral(" paths skipped.")
                                 : QStringLiteral("Scan complete — ") + QString::asprintf("%.1f", duration) +
                                       QStringLiteral(" seconds."));
    DuplicateSearch& duplicates = app_.duplicates();
    if (duplicates.afterScan()) {
        duplicates.setAfterScan(false);
        app_.setSection(AppSection::duplicates);
        duplicates.findDuplicates(std::nullopt);
    }
}

void ScanSession::fail(const QUuid& token, const std::optional<std::string>& error)
{
    if (scanGeneration_ != token)
        return;
    scanning_ = false;
    setProgress(nullptr);
    app_.duplicates().setAfterScan(false);
    Q_EMIT progressChanged();
    if (error)
        app_.notices().setError(QString::fromStdString(*error));
    else
        app_.notices().setNotice(cancelledNotice());
}

void ScanSession::cancelScan()
{
    scanCancellation_->cancel();
    scanGeneration_ = QUuid::createUuid();
    scanning_ = false;
    setProgress(nullptr);
    app_.duplicates().setAfterScan(false);
    Q_EMIT progressChanged();
    app_.notices().setNotice(cancelledNotice());
}

void ScanSession::stopWork()
{
    scanCancellation_->cancel();
    scanGeneration_ = QUuid::createUuid();
}

void ScanSession::refresh()
{
    if (scan_)
        startScan(scan_->rootPath(), false);
}

void ScanSession::chooseFolder(bool thenFindDuplicates, bool scanNew)
{
    const auto& choose = app_.services().chooseFolder;
    if (!choose)
        return;
    FolderRequest request;
    if (scanNew) {
        request.prompt = QStringLiteral("Scan folder");
        request.message = QStringLiteral("Scan a folder or mounted drive.");
    } else {
        request.prompt = thenFindDuplicates ? QStringLiteral("Find duplicates") : QStringLiteral("Open folder");
        request.message = QStringLiteral("Open a folder from the current scan.");
    }
    const auto chosen = choose(request);
    if (!chosen)
        return;
    if (scanNew) {
        startScan(*chosen, false);
    } else if (thenFindDuplicates) {
        const auto record = scan_ ? scan_->directory(*chosen) : std::nullopt;
        if (record)
            app_.duplicates().findDuplicates(record->path);
        else
            app_.notices().setNotice(kNotInScan);
    } else {
        browseLocation(*chosen);
    }
}

void ScanSession::installScan(ScanResult scan, ScanPresentation presentation, const std::string& focus,
                              bool historical)
{
    ExploreState& explore = app_.explore();
    explore.install(std::move(presentation));
    scan_ = std::move(scan);
    // The path order makes every later sort's ties one integer compare; it is made in the
    // background, and sorts use names until it is there.
    app_.workPool().start([ranked = *scan_] { ranked->pathRank(ScanData::rootId); });
    focusPath_ = focus;
    selection_.reset();
    navigation_.reset(scan_->rootPath());
    navigation_.visit(focus);
    isHistorical_ = historical;
    explore.setFilter(QString());
    app_.snapshots().clearComparison();
    Q_EMIT scanChanged();
    Q_EMIT focusChanged();
    explore.refreshFolderTypes();
}

void ScanSession::markHistorical()
{
    if (scan_ && !isHistorical_) {
        isHistorical_ = true;
        Q_EMIT scanChanged();
    }
}

void ScanSession::setFocusPath(std::optional<std::string> path)
{
    const bool changed = focusPath_ != path;
    focusPath_ = std::move(path);
    if (changed)
        app_.explore().refreshFolderTypes();
}

void ScanSession::browseLocation(const std::string& path)
{
    app_.setSection(AppSection::explore);
    app_.explore().setActiveQuickWin(std::nullopt);
    if (scanning_) {
        navigateLive(path, true);
        return;
    }
    if (!scan_) {
        app_.notices().setNotice(QStringLiteral("Choose Scan Whole Disk to load your folders."));
        return;
    }
    if (const auto record = scan_->directory(path))
        focusOn(*record);
    else
        app_.notices().setNotice(kNotInScan);
}

void ScanSession::focusOn(const DiskNode& node)
{
    if (scanning_) {
        if (node.isDirectory && !node.isSymbolicLink)
            navigateLive(node.path, true);
        return;
    }
    selection_ = node.path;
    if (node.isDirectory) {
        navigation_.visit(node.path);
        setFocusPath(node.path);
        app_.explore().setActiveQuickWin(std::nullopt);
        app_.explore().setFilter(QString());
    }
    Q_EMIT focusChanged();
}

void ScanSession::select(const std::string& path)
{
    if (scanning_ || !scan_ || scan_->find(path) == kNoNode || selection_ == path)
        return;
    selection_ = path;
    Q_EMIT focusChanged();
}

void ScanSession::navigateLive(const std::string& path, bool recordHistory)
{
    std::optional<std::string> target;
    for (const std::string& candidate : ScanPaths::candidates(path)) {
        if (ScanResult::contains(candidate, scanRootPath_)) {
            target = candidate;
            break;
        }
    }
    if (!target) {
        app_.notices().setNotice(QStringLiteral("This folder is outside the scan in progress."));
        return;
    }
    if (!liveNavigation_.current)
        liveNavigation_.reset(scanRootPath_);
    if (recordHistory)
        liveNavigation_.visit(*target);
    liveFocusPath_ = *target;
    scanNavigation_->focus(*target);
    app_.explore().setFilter(QString());
    Q_EMIT progressChanged();
    Q_EMIT focusChanged();
}

void ScanSession::goBack()
{
    step(&FolderNavigationHistory::goBack);
}

void ScanSession::goForward()
{
    step(&FolderNavigationHistory::goForward);
}

void ScanSession::step(std::optional<std::string> (FolderNavigationHistory::*move)())
{
    FolderNavigationHistory& history = scanning_ ? liveNavigation_ : navigation_;
    const auto path = (history.*move)();
    if (!path)
        return;
    if (scanning_) {
        navigateLive(*path, false);
        return;
    }
    selection_.reset();
    setFocusPath(*path);
    app_.explore().setActiveQuickWin(std::nullopt);
    app_.explore().setFilter(QString());
    Q_EMIT focusChanged();
}

void ScanSession::goUp()
{
    if (scanning_) {
        if (canGoUp())
            navigateLive(parentFolder(displayedFolderPath()), true);
        return;
    }
    const NodeId current = focusId();
    if (current != kNoNode && current != ScanData::rootId)
        focusOn(scan_->data().nodeWithoutChildren(scan_->data()[current].parent));
}

NodeId ScanSession::focusId() const
{
    if (!scan_)
        return kNoNode;
    if (focusPath_) {
        const NodeId id = scan_->find(*focusPath_);
        if (id != kNoNode)
            return id;
    }
    return scan_->find(scan_->rootPath());
}

std::string ScanSession::focusedPath() const
{
    const NodeId id = focusId();
    return id == kNoNode ? std::string() : scan_->data().path(id);
}

std::optional<DiskNode> ScanSession::focus() const
{
    const NodeId id = focusId();
    if (id == kNoNode)
        return std::nullopt;
    return scan_->data().node(id);
}

std::optional<DiskNode> ScanSession::selected() const
{
    if (!scan_ || !selection_)
        return std::nullopt;
    return scan_->node(*selection_);
}

std::vector<DiskNode> ScanSession::breadcrumbs() const
{
    std::vector<DiskNode> out;
    for (NodeId id = focusId(); id != kNoNode; id = scan_->data()[id].parent)
        out.push_back(scan_->data().nodeWithoutChildren(id));
    std::reverse(out.begin(), out.end());
    return out;
}

std::vector<DiskNode> ScanSession::navigationBreadcrumbs() const
{
    if (!scanning_)
        return breadcrumbs();
    if (scanProgress_ && scanProgress_->browsing)
        return scanProgress_->browsing->ancestors;
    return {};
}

const FolderNavigationHistory& ScanSession::displayedNavigation() const
{
    return scanning_ ? liveNavigation_ : navigation_;
}

std::string ScanSession::displayedFolderPath() const
{
    if (scanning_)
        return liveFocusPath_ ? *liveFocusPath_ : scanRootPath_;
    return focusedPath();
}

bool ScanSession::canGoUp() const
{
    if (scanning_)
        return displayedFolderPath() != scanRootPath_;
    const NodeId id = focusId();
    return id != kNoNode && id != ScanData::rootId;
}

QString ScanSession::displayName(const DiskNode& node) const
{
    const auto home = ScanPaths::candidates(app_.services().home);
    if (std::find(home.begin(), home.end(), node.path) != home.end())
        return QStringLiteral("Home");
    if (node.path == "/")
        return QStringLiteral("System Disk");
    const std::string_view name = node.name();
    return displayText(name);
}

std::optional<VolumeInfo> ScanSession::volume() const
{
    if (scan_)
        return VolumeInfo::read(scan_->rootPath());
    const auto& volumes = app_.monitor().sample().volumes;
    if (!volumes.empty())
        return volumes.front();
    return VolumeInfo::read("/");
}

} // namespace tarnbridge::app
