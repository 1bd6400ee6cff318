#pragma once

#include <QTimeZone>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/CancellationFlag.h"
#include "model/ScanResult.h"
#include "query/ScanQuery.h"

namespace tarnbridge {

// How old a file's last change is, in 86400-second days, upper bounds inclusive.
enum class AgeRange : std::uint8_t { week, month, quarter, year, twoYears, older };
const std::array<AgeRange, 6>& allAgeRanges();
std::string_view title(AgeRange range);
AgeRange containing(std::int64_t date, std::int64_t now);

// A calendar month in the user's time zone.
struct ModificationMonth {
    int year = 1970;
    int month = 1;
    auto operator<=>(const ModificationMonth&) const = default;
};

// Splits instants into months of one time zone, quickly: month starts are computed once per
// year met, then found by binary search.
class MonthCalendar {
public:
    explicit MonthCalendar(QTimeZone zone = QTimeZone::systemTimeZone());
    ModificationMonth month(std::int64_t unixSeconds);

private:
    void cover(int year);
    QTimeZone zone_;
    std::vector<std::pair<std::int64_t, ModificationMonth>> starts_; // sorted by instant
    int firstYear_ = 0, lastYear_ = -1;
};

// The files of one cell, biggest first. Ids, so that a cell of a million files costs no
// string until its rows are shown.
struct AgeListing {
    std::vector<NodeId> ids;
    std::int64_t bytes = 0;
    std::vector<std::string> paths(const ScanResult& scan) const;
};

// How old the files below a folder are: bytes by age class and by month, one entry per file
// sorted biggest first, and the large files untouched for a year.
struct AgeSummary {
    // 24 bytes in this order: a summary of a whole disk holds millions and sorts them.
    struct Entry {
        NodeId id;
        AgeRange range;
        bool untouched;
        std::int64_t bytes;
        ModificationMonth month;
    };
    static_assert(sizeof(Entry) == 24);

    ScanResult scan; // what the entries' ids refer to
    std::vector<Entry> entries;
    std::array<std::int64_t, 6> totals{};
    std::map<ModificationMonth, std::int64_t> months;

    static AgeSummary make(const ScanResult& scan, std::string_view focus, const ScanQuery& query,
                           std::int64_t now, MonthCalendar& calendar,
                           const CancellationFlag* cancellation = nullptr);
    // The same over chosen records of a scan.
    static AgeSummary make(const ScanResult& scan, const std::vector<NodeId>& nodes, SizeMeasure measure,
                           std::int64_t now, MonthCalendar& calendar,
                           const CancellationFlag* cancellation = nullptr);

    // One month (whatever the range), else one class, else the untouched files.
    AgeListing listing(std::optional<AgeRange> range, std::optional<ModificationMonth> month,
                       const CancellationFlag* cancellation = nullptr) const;

private:
    void add(NodeId id, const NodeRecord& record, SizeMeasure measure, std::int64_t now, MonthCalendar& calendar);
    void finish(const CancellationFlag* cancellation);

    // Month sums while adding, by year * 12 + month from the first month seen: an array
    // index instead of a map lookup per file. `finish` moves them into `months`.
    std::vector<std::int64_t> monthBytes_;
    std::vector<char> monthSeen_;
    std::int64_t firstMonth_ = 0;
};

} // namespace tarnbridge
