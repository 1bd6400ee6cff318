#include "query/AgeSummary.h"

#include <QDateTime>

#include <algorithm>

namespace tarnbridge {

const std::array<AgeRange, 6>& allAgeRanges()
{
    static const std::array<AgeRange, 6> ranges{AgeRange::week, AgeRange::month, AgeRange::quarter,
                                                AgeRange::year, AgeRange::twoYears, AgeRange::older};
    return ranges;
}

std::string_view title(AgeRange range)
{
    static constexpr std::string_view titles[] = {"Last 7 days", "8–30 days", "1–3 months",
                                                  "3–12 months", "1–2 years", "Over 2 years"};
    return titles[std::size_t(range)];
}

AgeRange containing(std::int64_t date, std::int64_t now)
{
    // (now − date) / 86400.0 against whole days is the same test on the seconds, without a
    // division per file.
    constexpr std::int64_t day = 86400;
    const std::int64_t age = now - date;
    if (age <= 7 * day) // a negative age too
        return AgeRange::week;
    if (age <= 30 * day)
        return AgeRange::month;
    if (age <= 90 * day)
        return AgeRange::quarter;
    if (age <= 365 * day)
        return AgeRange::year;
    if (age <= 730 * day)
        return AgeRange::twoYears;
    return AgeRange::older;
}

MonthCalendar::MonthCalendar(QTimeZone zone) : zone_(std::move(zone)) {}

void MonthCalendar::cover(int year)
{
    if (lastYear_ < firstYear_) {
        firstYear_ = lastYear_ = year;
    } else {
        firstYear_ = std::min(firstYear_, year);
        lastYear_ = std::max(lastYear_, year);
    }
    starts_.clear();
    for (int y = firstYear_; y <= lastYear_ + 1; ++y)
        for (int m = 1; m <= 12; ++m)
            starts_.emplace_back(QDateTime(QDate(y, m, 1), QTime(0, 0), zone_).toSecsSinceEpoch(),
                                 ModificationMonth{y, m});
}

ModificationMonth MonthCalendar::month(std::int64_t unixSeconds)
{
    if (starts_.empty() || unixSeconds < starts_.front().first || unixSeconds >= starts_.back().first) {
        const QDate date = QDateTime::fromSecsSinceEpoch(unixSeconds, zone_).date();
        if (!date.isValid())
            return {};
        cover(date.year());
    }
    // Months are 28 to 31 days long: a guess from the average length is off by one at most,
    // where a binary search would take a handful of unpredictable steps per file.
    constexpr std::int64_t averageMonth = 2'629'746;
    std::size_t i = std::min<std::size_t>(std::size_t((unixSeconds - starts_.front().first) / averageMonth),
                                          starts_.size() - 2);
    while (starts_[i].first > unixSeconds)
        --i;
    while (starts_[i + 1].first <= unixSeconds)
        ++i;
    return starts_[i].second;
}

void AgeSummary::add(NodeId id, const NodeRecord& r, SizeMeasure measure, std::int64_t now, MonthCalendar& calendar)
{
    if (r.isDirectory())
        return;
    const AgeRange range = containing(r.modifiedSeconds, now);
    const ModificationMonth month = calendar.month(r.modifiedSeconds);
    const std::int64_t bytes = r.bytes(measure);
    totals[std::size_t(range)] += bytes;
    const std::int64_t key = std::int64_t(month.year) * 12 + (month.month - 1);
    if (monthBytes_.empty()) {
        firstMonth_ = key;
    } else if (key < firstMonth_) {
        const auto grow = std::size_t(firstMonth_ - key);
        monthBytes_.insert(monthBytes_.begin(), grow, 0);
        monthSeen_.insert(monthSeen_.begin(), grow, 0);
        firstMonth_ = key;
    }
    const auto slot = std::size_t(key - firstMonth_);
    if (slot >= monthBytes_.size()) {
        monthBytes_.resize(slot + 1, 0);
        monthSeen_.resize(slot + 1, 0);
    }
    monthBytes_[slot] += bytes;
    monthSeen_[slot] = 1;
    constexpr std::int64_t year = 31'536'000;
    const bool untouched = r.logicalSize >= 40'000'000 && now - r.modifiedSeconds > year &&
                           now - r.accessedSeconds > year;
    entries.push_back({id, range, untouched, bytes, month});
}

void AgeSummary::finish(const CancellationFlag* cancellation)
{
    for (std::size_t slot = 0; slot < monthBytes_.size(); ++slot) {
        if (!monthSeen_[slot])
            continue;
        const std::int64_t key = firstMonth_ + std::int64_t(slot);
        const std::int64_t year = key >= 0 ? key / 12 : -((-key + 11) / 12);
        months[ModificationMonth{int(year), int(key - year * 12) + 1}] += monthBytes_[slot];
    }
    monthBytes_.clear();
    monthSeen_.clear();
    sortByNumberWithPathTies(
        entries, scan.data(), false, [](const Entry& e) { return e.bytes; }, [](const Entry& e) { return e.id; },
        cancellation);
}

AgeSummary AgeSummary::make(const ScanResult& scan, std::string_view focus, const ScanQuery& query,
                            std::int64_t now, MonthCalendar& calendar, const CancellationFlag* cancellation)
{
    AgeSummary summary;
    summary.scan = scan;
    if (cancellation)
        cancellation->check();
    if (const NodeId start = scan.isEmpty() ? kNoNode : scan.find(focus); start != kNoNode) {
        // One entry per file at most: reserving it spares the copies of a growing vector.
        summary.entries.reserve(std::size_t(scan.data()[start].fileCount));
        query.forEachBelowInIdOrder(scan, start, now, cancellation, [&](NodeId id, const NodeRecord& r) {
            summary.add(id, r, query.measure, now, calendar);
        });
    }
    summary.finish(cancellation);
    return summary;
}

AgeSummary AgeSummary::make(const ScanResult& scan, const std::vector<NodeId>& nodes, SizeMeasure measure,
                            std::int64_t now, MonthCalendar& calendar, const CancellationFlag* cancellation)
{
    AgeSummary summary;
    summary.scan = scan;
    summary.entries.reserve(nodes.size());
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (cancellation && i % 512 == 0)
            cancellation->check();
        summary.add(nodes[i], scan.data()[nodes[i]], measure, now, calendar);
    }
    summary.finish(cancellation);
    return summary;
}

AgeListing AgeSummary::listing(std::optional<AgeRange> range, std::optional<ModificationMonth> month,
                               const CancellationFlag* cancellation) const
{
    AgeListing out;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (cancellation && i % 512 == 0)
            cancellation->check();
        const Entry& e = entries[i];
        const bool selected = month ? e.month == *month : (range ? e.range == *range : e.untouched);
        if (!selected)
            continue;
        out.ids.push_back(e.id);
        out.bytes += e.bytes;
    }
    if (cancellation)
        cancellation->check();
    return out;
}

std::vector<std::string> AgeListing::paths(const ScanResult& scan) const
{
    std::vector<std::string> out;
    out.reserve(ids.size());
    for (NodeId id : ids)
        out.push_back(scan->path(id));
    return out;
}

} // namespace tarnbridge
