#include "app/model/AgeMapState.h"

#include <algorithm>
#include <limits>

#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ScanSession.h"

namespace tarnbridge::app {

namespace {

const AgeSummary& emptySummary()
{
    static const AgeSummary empty;
    return empty;
}

} // namespace

int heatLevel(std::int64_t bytes, std::int64_t maximum)
{
    if (bytes < 1)
        return 0;
    std::int64_t most = std::max<std::int64_t>(maximum, 1);
    if (bytes >= most)
        return 6;
    // The least level L with L >= 6·√(bytes / maximum), in exact integers: L²·maximum >= 36·bytes.
    // Sizes beyond 256 PB are halved first, against overflow.
    while (most > std::numeric_limits<std::int64_t>::max() / 36) {
        most /= 2;
        bytes = std::max<std::int64_t>(bytes / 2, 1);
    }
    for (std::int64_t level = 1; level < 6; ++level)
        if (level * level * most >= 36 * bytes)
            return int(level);
    return 6;
}

AgeMapState::AgeMapState(AppModel& app, ExploreState& explore) : app_(app), explore_(explore)
{
    summaryQuery_ = std::make_unique<BackgroundQuery<ExplorerQueryKey, Summary>>(this, app.workPool(),
                                                                                  [this] { takeSummary(); });
    listingQuery_ = std::make_unique<BackgroundQuery<AgeListingKey, Listed>>(this, app.workPool(),
                                                                              [this] { takeListing(); });
    connect(&explore_, &ExploreState::filtersChanged, this, &AgeMapState::refresh);
    connect(&explore_, &ExploreState::displayChanged, this, &AgeMapState::refresh);
    connect(&app_.session(), &ScanSession::scanChanged, this, &AgeMapState::refresh);
    connect(&app_.session(), &ScanSession::focusChanged, this, &AgeMapState::refresh);
}

AgeMapState::~AgeMapState() = default;

bool AgeMapState::active() const
{
    return explore_.storageView() == StorageView::ageMap && app_.session().scan();
}

ExplorerQueryKey AgeMapState::key() const
{
    return explore_.queryKey("ageMap");
}

const AgeSummary& AgeMapState::summary() const
{
    return summary_ ? *summary_ : emptySummary();
}

bool AgeMapState::summaryPending() const
{
    return active() && preparedKey_ != key();
}

std::optional<AgeListingKey> AgeMapState::listingKey() const
{
    if (!preparedKey_)
        return std::nullopt;
    return AgeListingKey{*preparedKey_, revision_, range_, month_};
}

bool AgeMapState::listingPending() const
{
    // A list of a stale summary is stale too.
    return summaryPending() || (active() && listedKey_ != listingKey());
}

void AgeMapState::forget()
{
    summaryQuery_->reset();
    listingQuery_->reset();
    summary_.reset();
    preparedKey_.reset();
    listing_ = {};
    listingScan_ = {};
    listedKey_.reset();
    limit_ = kPageSize;
}

void AgeMapState::refresh()
{
    const auto& scan = app_.session().scan();
    if (!scan) {
        forget();
        Q_EMIT changed();
        return;
    }
    if (!active()) {
        // Nothing runs for a hidden view; a result of another scan would only hold its memory.
        if (summaryQuery_->isPending())
            summaryQuery_->reset();
        if (listingQuery_->isPending())
            listingQuery_->reset();
        if (preparedKey_ && preparedKey_->scanID != scan->id())
            forget();
        Q_EMIT changed();
        return;
    }
    const ExplorerQueryKey wanted = key();
    if (preparedKey_ != wanted) {
        summaryQuery_->request(wanted, [scan = *scan, wanted, range = range_, month = month_](const CancellationFlag& flag) {
            MonthCalendar calendar; // the user's time zone
            auto summary = std::make_shared<const AgeSummary>(
                AgeSummary::make(scan, wanted.focus, wanted.filter, currentTime(), calendar, &flag));
            Listed listed{summary->listing(range, month, &flag), summary->scan};
            return std::make_shared<const Prepared>(Prepared{summary, std::move(listed), range, month});
        });
    } else {
        // Back to a key already prepared: whatever ran for another one is stale.
        summaryQuery_->reset();
    }
    requestListing();
    Q_EMIT changed();
}

void AgeMapState::requestListing()
{
    const std::optional<AgeListingKey> wanted = listingKey();
    if (!wanted || !active())
        return;
    if (listedKey_ == wanted) {
        listingQuery_->reset();
        return;
    }
    listingQuery_->request(*wanted, [summary = summary_, range = range_, month = month_](const CancellationFlag& flag) {
        return Listed{summary->listing(range, month, &flag), summary->scan};
    });
}

void AgeMapState::takeSummary()
{
    const Prepared& prepared = **summaryQuery_->value();
    summary_ = prepared.summary;
    preparedKey_ = summaryQuery_->readyKey();
    revision_ = QUuid::createUuid();
    if (prepared.range == range_ && prepared.month == month_) {
        // In this order, as for any listing: the list, one page, its key.
        listingQuery_->reset();
        listing_ = prepared.listed.listing;
        listingScan_ = prepared.listed.scan;
        limit_ = kPageSize;
        listedKey_ = listingKey();
    } else {
        requestListing(); // the selection changed meanwhile
    }
    Q_EMIT changed();
}

void AgeMapState::takeListing()
{
    // In this order: a new listing always starts again at one page.
    Listed listed = *listingQuery_->value();
    listing_ = std::move(listed.listing);
    listingScan_ = std::move(listed.scan);
    limit_ = kPageSize;
    listedKey_ = listingQuery_->readyKey();
    Q_EMIT changed();
}

void AgeMapState::selectRange(AgeRange range)
{
    month_.reset();
    range_ = range_ == range ? std::nullopt : std::optional(range);
    requestListing();
    Q_EMIT changed();
}

void AgeMapState::selectMonth(ModificationMonth month)
{
    range_.reset();
    month_ = month_ == month ? std::nullopt : std::optional(month);
    requestListing();
    Q_EMIT changed();
}

void AgeMapState::clearSelection()
{
    range_.reset();
    month_.reset();
    requestListing();
    Q_EMIT changed();
}

void AgeMapState::showMore()
{
    limit_ += kPageSize;
    Q_EMIT changed();
}

std::vector<DiskNode> AgeMapState::rows() const
{
    std::vector<DiskNode> out;
    const std::size_t count = std::min(listing_.ids.size(), std::size_t(std::max(limit_, 0)));
    out.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        out.push_back(listingScan_.data().nodeWithoutChildren(listing_.ids[i]));
    return out;
}

std::optional<ModificationMonth> AgeMapState::busiestMonth() const
{
    std::optional<ModificationMonth> busiest;
    std::int64_t most = 0;
    for (const auto& [month, bytes] : summary().months) {
        if (bytes > most) {
            most = bytes;
            busiest = month;
        }
    }
    return busiest;
}

bool AgeMapState::canStage() const
{
    const auto& scan = app_.session().scan();
    return app_.canClean() && !preparingStage_ && !pending() && !listing_.ids.empty() && scan &&
           listingScan_.id() == scan->id();
}

void AgeMapState::stageListing()
{
    if (!canStage())
        return;
    // A listing can hold a million files: their paths are made off the GUI thread, and the
    // cleanup flow's background staging takes them from there.
    preparingStage_ = true;
    Q_EMIT changed();
    BackgroundJob::run<std::vector<std::string>>(
        app_.workPool(), this, std::make_shared<CancellationFlag>(),
        [ids = listing_.ids, scan = listingScan_](const CancellationFlag& flag) {
            std::vector<std::string> paths;
            paths.reserve(ids.size());
            for (std::size_t i = 0; i < ids.size(); ++i) {
                if (i % 4096 == 0)
                    flag.check();
                paths.push_back(scan->path(ids[i]));
            }
            return paths;
        },
        [this, scanId = listingScan_.id()](JobOutcome<std::vector<std::string>> outcome) {
            preparingStage_ = false;
            const auto& scan = app_.session().scan();
            if (outcome.value && scan && scan->id() == scanId)
                app_.cleanup().stagePaths(*outcome.value, kReason);
            Q_EMIT changed();
        });
}

} // namespace tarnbridge::app
