#pragma once

#include <QObject>
#include <QUuid>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/model/BackgroundQuery.h"
#include "app/model/ExploreState.h"
#include "query/AgeSummary.h"

namespace tarnbridge::app {

class AppModel;

// What one listing depends on: the summary it is taken from (its key and revision) and the
// chosen bar or month. The revision makes every new summary refresh the list.
struct AgeListingKey {
    ExplorerQueryKey query;
    QUuid revision;
    std::optional<AgeRange> range;
    std::optional<ModificationMonth> month;
    bool operator==(const AgeListingKey&) const = default;
};

// A month's shade in the heat map, 0 for no bytes, else 1…6 by the square root of its share of
// the busiest month: in a long history most months are small, and the root keeps them visible.
int heatLevel(std::int64_t bytes, std::int64_t maximum);

// The age map of the focus under the filters: the summary and the listing, each computed in
// the background by its own key, the chosen bar or month, and the rows shown.
class AgeMapState : public QObject {
    Q_OBJECT
public:
    static constexpr int kPageSize = 40;
    static constexpr const char* kReason = "Selected in Explore";

    AgeMapState(AppModel& app, ExploreState& explore);
    ~AgeMapState() override;

    // Selection: a bar and a month exclude each other; choosing the chosen one again clears it.
    std::optional<AgeRange> selectedRange() const { return range_; }
    std::optional<ModificationMonth> selectedMonth() const { return month_; }
    void selectRange(AgeRange range);
    void selectMonth(ModificationMonth month);
    void clearSelection();

    // The summary shown (empty before the first) and the key it was made for.
    const AgeSummary& summary() const;
    const std::optional<ExplorerQueryKey>& preparedKey() const { return preparedKey_; }
    const QUuid& summaryRevision() const { return revision_; }
    // The key the current scan, focus and filters ask for.
    ExplorerQueryKey key() const;
    // The view is shown and its summary is not yet the one for `key()`.
    bool summaryPending() const;

    const AgeListing& listing() const { return listing_; }
    const std::optional<AgeListingKey>& listedKey() const { return listedKey_; }
    // The listing the summary and selection ask for; none before a summary.
    std::optional<AgeListingKey> listingKey() const;
    // The listing is not the one for the current key and selection.
    bool listingPending() const;
    bool pending() const { return listingPending(); }

    int limit() const { return limit_; }
    void showMore();
    // The first `limit` listed records.
    std::vector<DiskNode> rows() const;
    std::optional<ModificationMonth> busiestMonth() const;

    // Stages every listed file: possible with a current listing of a scan that may feed the queue.
    bool canStage() const;
    void stageListing();

    // Computes only while the age map is the storage view: other views pay nothing for it.
    bool active() const;

Q_SIGNALS:
    void changed();

private:
    struct Listed {
        AgeListing listing;
        ScanResult scan; // what the listing's ids refer to
    };
    // A summary comes with the listing of the selection it was asked with: a new summary's
    // list then needs no second round trip.
    struct Prepared {
        std::shared_ptr<const AgeSummary> summary;
        Listed listed;
        std::optional<AgeRange> range;
        std::optional<ModificationMonth> month;
    };
    using Summary = std::shared_ptr<const Prepared>;

    void refresh();
    void requestListing();
    void takeSummary();
    void takeListing();
    void forget();

    AppModel& app_;
    ExploreState& explore_;
    std::optional<AgeRange> range_;
    std::optional<ModificationMonth> month_;
    std::shared_ptr<const AgeSummary> summary_;
    std::optional<ExplorerQueryKey> preparedKey_;
    QUuid revision_;
    AgeListing listing_;
    ScanResult listingScan_;
    std::optional<AgeListingKey> listedKey_;
    int limit_ = kPageSize;
    bool preparingStage_ = false;
    std::unique_ptr<BackgroundQuery<ExplorerQueryKey, Summary>> summaryQuery_;
    std::unique_ptr<BackgroundQuery<AgeListingKey, Listed>> listingQuery_;
};

} // namespace tarnbridge::app
