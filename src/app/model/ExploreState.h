#pragma once

#include <QObject>
#include <QUuid>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/model/AppTypes.h"
#include "app/model/BackgroundQuery.h"
#include "query/ScanPresentation.h"
#include "query/ScanQuery.h"

namespace tarnbridge::app {

class AppModel;
class AgeMapState;

// What a query over the shown scan depends on; a value computed for another key is stale.
struct ExplorerQueryKey {
    std::optional<QUuid> scanID;
    std::string focus;
    ScanQuery filter;
    std::string scope; // the view's own selector, as text
    bool operator==(const ExplorerQueryKey&) const = default;
};

enum class ExplorerFilterID { name, hidden, size, type, age };

struct ActiveExplorerFilter {
    ExplorerFilterID id;
    QString title;
    bool operator==(const ActiveExplorerFilter&) const = default;
};

// How the explore section shows the scan: the view, its display switches, the filters, and
// the data derived from the installed scan (type totals, quick wins, per-folder types).
class ExploreState : public QObject {
    Q_OBJECT
public:
    explicit ExploreState(AppModel& app);
    ~ExploreState() override;

    // Display.
    StorageView storageView() const { return storageView_; }
    int visualizationDepth() const { return visualizationDepth_; }
    ColorMode colorMode() const { return colorMode_; }
    bool logical() const { return logical_; }
    SizeMeasure measure() const { return logical_ ? SizeMeasure::logical : SizeMeasure::allocated; }
    bool showInspector() const { return showInspector_; }
    bool showLabels() const { return showLabels_; }
    bool showIssues() const { return showIssues_; }
    void setStorageView(StorageView view);
    void setVisualizationDepth(int depth); // held within 1…9
    void setColorMode(ColorMode mode);
    void setLogical(bool logical);
    void setShowInspector(bool on);
    void setShowLabels(bool on);
    void setShowIssues(bool on);

    // Filters.
    const QString& filter() const { return filter_; }
    bool showHidden() const { return showHidden_; }
    std::int64_t minimumBytes() const { return minimumBytes_; }
    std::optional<FileCategory> categoryFilter() const { return categoryFilter_; }
    int modifiedBeforeDays() const { return modifiedBeforeDays_; }
    void setFilter(const QString& text);
    void setShowHidden(bool on);
    void setMinimumBytes(std::int64_t bytes);
    void setCategoryFilter(std::optional<FileCategory> category);
    void setModifiedBeforeDays(int days);

    ScanQuery queryFilter() const;
    ExplorerQueryKey queryKey(const std::string& scope = {}) const;
    std::vector<ActiveExplorerFilter> activeFilters() const;
    void removeFilter(ExplorerFilterID id);
    void clearFilters();
    bool matches(const DiskNode& node) const;

    // The focus folder's children that pass the filters, largest first by the shown measure;
    // ids, so that a folder of 100,000 entries makes no strings.
    std::vector<NodeId> currentChildIds() const;
    std::vector<DiskNode> currentChildren() const;

    // Derived from the installed scan.
    const std::vector<QuickWin>& quickWins() const { return presentation_.quickWins; }
    const FileTypeTotals& typeTotals() const { return presentation_.types; }
    std::int64_t uniqueQuickWinBytes() const { return presentation_.uniqueQuickWinBytes; }
    const std::map<std::string, FileTypeTotals>& folderTypes() const { return *folderTypes_; }
    std::optional<QuickWinKind> activeQuickWin() const { return activeQuickWin_; }
    void setActiveQuickWin(std::optional<QuickWinKind> kind);

    // Called by the scan session when a scan is installed: the presentation came with it.
    void install(ScanPresentation presentation);
    // The per-folder type totals of the focus: the scan's own for its root, a cached result
    // for the 8 folders seen last, else computed in the background.
    void refreshFolderTypes();
    // The age map's queries and selection.
    AgeMapState& ageMap() { return *ageMap_; }
    const AgeMapState& ageMap() const { return *ageMap_; }

    static constexpr std::size_t kFolderTypeCacheSize = 8;

Q_SIGNALS:
    void displayChanged();
    void filtersChanged();
    void derivedChanged();
    void folderTypesChanged();

private:
    using FolderTypes = std::map<std::string, FileTypeTotals>;

    AppModel& app_;
    StorageView storageView_ = StorageView::treemap;
    int visualizationDepth_ = 7;
    ColorMode colorMode_ = ColorMode::folder;
    bool logical_ = false;
    bool showInspector_ = true;
    bool showLabels_ = true;
    bool showIssues_ = false;
    QString filter_;
    bool showHidden_ = true;
    std::int64_t minimumBytes_ = 0;
    std::optional<FileCategory> categoryFilter_;
    int modifiedBeforeDays_ = 0;

    ScanPresentation presentation_;
    std::shared_ptr<const FolderTypes> folderTypes_;
    std::shared_ptr<const FolderTypes> rootFolderTypes_;
    std::vector<std::pair<std::string, std::shared_ptr<const FolderTypes>>> folderTypeCache_; // newest first
    std::unique_ptr<BackgroundQuery<std::string, TypeDistribution>> folderTypeQuery_;
    std::optional<QuickWinKind> activeQuickWin_;
    std::unique_ptr<AgeMapState> ageMap_;
};

} // namespace tarnbridge::app
