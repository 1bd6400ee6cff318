#include "app/model/ExploreState.h"

#include <algorithm>
#include <thread>

#include "app/model/AgeMapState.h"
#include "app/model/AppModel.h"
#include "app/model/ScanSession.h"
#include "model/Formatting.h"

namespace tarnbridge::app {

ExploreState::ExploreState(AppModel& app)
    : QObject(&app), app_(app), folderTypes_(std::make_shared<FolderTypes>()),
      rootFolderTypes_(folderTypes_)
{
    folderTypeQuery_ = std::make_unique<BackgroundQuery<std::string, TypeDistribution>>(
        this, app.workPool(), [this] {
            const auto& key = folderTypeQuery_->readyKey();
            auto folders = std::make_shared<const FolderTypes>(folderTypeQuery_->value()->folders);
            folderTypes_ = folders;
            folderTypeCache_.insert(folderTypeCache_.begin(), {*key, folders});
            if (folderTypeCache_.size() > kFolderTypeCacheSize)
                folderTypeCache_.pop_back();
            Q_EMIT folderTypesChanged();
        });
    ageMap_ = std::make_unique<AgeMapState>(app, *this);
}

ExploreState::~ExploreState() = default;

void ExploreState::setStorageView(StorageView view)
{
    if (storageView_ != view) {
        storageView_ = view;
        Q_EMIT displayChanged();
    }
}

void ExploreState::setVisualizationDepth(int depth)
{
    depth = std::clamp(depth, 1, 9);
    if (visualizationDepth_ != depth) {
        visualizationDepth_ = depth;
        Q_EMIT displayChanged();
    }
}

void ExploreState::setColorMode(ColorMode mode)
{
    if (colorMode_ != mode) {
        colorMode_ = mode;
        Q_EMIT displayChanged();
    }
}

void ExploreState::setLogical(bool logical)
{
    if (logical_ != logical) {
        logical_ = logical;
        Q_EMIT displayChanged();
        Q_EMIT filtersChanged(); // the measure is part of every query
    }
}

void ExploreState::setShowInspector(bool on)
{
    if (showInspector_ != on) {
        showInspector_ = on;
        Q_EMIT displayChanged();
    }
}

void ExploreState::setShowLabels(bool on)
{
    if (showLabels_ != on) {
        showLabels_ = on;
        Q_EMIT displayChanged();
    }
}

void ExploreState::setShowIssues(bool on)
{
    if (showIssues_ != on) {
        showIssues_ = on;
        Q_EMIT displayChanged();
    }
}

void ExploreState::setFilter(const QString& text)
{
    if (filter_ != text) {
        filter_ = text;
        Q_EMIT filtersChanged();
    }
}

void ExploreState::setShowHidden(bool on)
{
    if (showHidden_ != on) {
        showHidden_ = on;
        Q_EMIT filtersChanged();
    }
}

void ExploreState::setMinimumBytes(std::int64_t bytes)
{
    if (minimumBytes_ != bytes) {
        minimumBytes_ = bytes;
        Q_EMIT filtersChanged();
    }
}

void ExploreState::setCategoryFilter(std::optional<FileCategory> category)
{
    if (categoryFilter_ != category) {
        categoryFilter_ = category;
        Q_EMIT filtersChanged();
    }
}

void ExploreState::setModifiedBeforeDays(int days)
{
    if (modifiedBeforeDays_ != days) {
        modifiedBeforeDays_ = days;
        Q_EMIT filtersChanged();
    }
}

ScanQuery ExploreState::queryFilter() const
{
    ScanQuery query;
    query.text = filter_.toStdString();
    query.showHidden = showHidden_;
    query.minimumBytes = minimumBytes_;
    query.category = categoryFilter_;
    query.modifiedBeforeDays = modifiedBeforeDays_;
    query.measure = measure();
    return query;
}

ExplorerQueryKey ExploreState::queryKey(const std::string& scope) const
{
    ExplorerQueryKey key;
    const ScanSession& session = app_.session();
    if (session.scan())
        key.scanID = session.scan()->id();
    key.focus = session.focusedPath();
    key.filter = queryFilter();
    key.scope = scope;
    return key;
}

std::vector<ActiveExplorerFilter> ExploreState::activeFilters() const
{
    std::vector<ActiveExplorerFilter> out;
    if (!filter_.isEmpty())
        out.push_back({ExplorerFilterID::name, QStringLiteral("Name: ") + filter_});
    if (!showHidden_)
        out.push_back({ExplorerFilterID::hidden, QStringLiteral("Hidden files excluded")});
    if (minimumBytes_ >= 1)
        out.push_back({ExplorerFilterID::size, QString::fromStdString(formattedBytes(minimumBytes_)) + u'+'});
    if (categoryFilter_) {
        const std::string_view raw = categoryFilter_->rawValue();
        out.push_back({ExplorerFilterID::type, QString::fromUtf8(raw.data(), qsizetype(raw.size()))});
    }
    if (modifiedBeforeDays_ >= 1) {
        QString age;
        if (modifiedBeforeDays_ == 365)
            age = QStringLiteral("1 year");
        else if (modifiedBeforeDays_ == 730)
            age = QStringLiteral("2 years");
        else
            age = QString::number(modifiedBeforeDays_) + QStringLiteral(" days");
        out.push_back({ExplorerFilterID::age, QStringLiteral("Older than ") + age});
    }
    return out;
}

void ExploreState::removeFilter(ExplorerFilterID id)
{
    switch (id) {
    case ExplorerFilterID::name: filter_.clear(); break;
    case ExplorerFilterID::hidden: showHidden_ = true; break;
    case ExplorerFilterID::size: minimumBytes_ = 0; break;
    case ExplorerFilterID::type: categoryFilter_.reset(); break;
    case ExplorerFilterID::age: modifiedBeforeDays_ = 0; break;
    }
    Q_EMIT filtersChanged();
}

void ExploreState::clearFilters()
{
    filter_.clear();
    showHidden_ = true;
    minimumBytes_ = 0;
    categoryFilter_.reset();
    modifiedBeforeDays_ = 0;
    Q_EMIT filtersChanged();
}

bool ExploreState::matches(const DiskNode& node) const
{
    return queryFilter().matches(node, currentTime());
}

std::vector<NodeId> ExploreState::currentChildIds() const
{
    const ScanSession& session = app_.session();
    const auto& scan = session.scan();
    if (!scan)
        return {};
    const NodeId focus = session.focusId();
    if (focus == kNoNode)
        return {};
    std::vector<NodeId> ids = scan->sortedChildren(focus, measure());
    const ScanQuery query = queryFilter();
    const std::int64_t now = currentTime();
    const ScanData& data = scan->data();
    std::erase_if(ids, [&](NodeId id) { return !query.matches(data, id, now); });
    return ids;
}

std::vector<DiskNode> ExploreState::currentChildren() const
{
    const auto& scan = app_.session().scan();
    if (!scan)
        return {};
    const std::vector<NodeId> ids = currentChildIds();
    const std::string folder = app_.session().focusedPath();
    const ScanData& data = scan->data();
    // Rows, not trees: a child folder's own children are not listed. A huge folder's rows are
    // made by two threads, each filling its half of the list in place.
    std::vector<DiskNode> out(ids.size());
    auto fill = [&](std::size_t from, std::size_t to) {
        for (std::size_t i = from; i < to; ++i)
            out[i] = data.nodeWithoutChildren(ids[i], folder);
    };
    constexpr std::size_t kSplitAt = 20'000;
    if (ids.size() < kSplitAt) {
        fill(0, ids.size());
        return out;
    }
    const std::size_t half = ids.size() / 2;
    std::thread helper(fill, half, ids.size());
    fill(0, half);
    helper.join();
    return out;
}

void ExploreState::setActiveQuickWin(std::optional<QuickWinKind> kind)
{
    if (activeQuickWin_ != kind) {
        activeQuickWin_ = kind;
        Q_EMIT derivedChanged();
    }
}

void ExploreState::install(ScanPresentation presentation)
{
    folderTypeQuery_->reset();
    folderTypeCache_.clear();
    rootFolderTypes_ = std::make_shared<const FolderTypes>(std::move(presentation.folderTypes));
    presentation.folderTypes.clear();
    presentation_ = std::move(presentation);
    Q_EMIT derivedChanged();
}

void ExploreState::refreshFolderTypes()
{
    folderTypeQuery_->cancel();
    const ScanSession& session = app_.session();
    const auto& scan = session.scan();
    const std::string focus = session.focusedPath();
    if (!scan || focus.empty())
        return;
    if (focus == scan->rootPath()) {
        folderTypes_ = rootFolderTypes_;
        Q_EMIT folderTypesChanged();
        return;
    }
    const std::string key = scan->id().toString().toStdString() + focus;
    for (const auto& [cached, folders] : folderTypeCache_) {
        if (cached == key) {
            folderTypes_ = folders;
            Q_EMIT folderTypesChanged();
            return;
        }
    }
    folderTypes_ = std::make_shared<const FolderTypes>();
    Q_EMIT folderTypesChanged();
    // The key holds the scan's id and the focus, so a value that arrives for another scan or
    // folder is never taken.
    folderTypeQuery_->reset();
    folderTypeQuery_->request(key, [scan = *scan, path = focus](const CancellationFlag& flag) {
        TypeDistribution result = distribution(scan, path, &flag);
        flag.check(); // a cancelled distribution is empty, never a value
        return result;
    });
}

} // namespace tarnbridge::app
