#include <QCollator>
#include <QCollatorSortKey>
#include <QLocale>
#include <QString>

#include <algorithm>
#include <unordered_map>

#include "query/ScanPresentation.h"
#include "query/ScanQuery.h"

namespace tarnbridge {

namespace {

// Natural, case-insensitive order of the user's locale, as a file manager sorts names.
QCollator naturalCollator()
{
    QLocale locale;
    // The C locale's collation compares bytes ("B" before "a", "file10" before "file2"); a
    // shell without LANG still gets the order of a file manager.
    if (locale.language() == QLocale::C)
        locale = QLocale(QLocale::English, QLocale::UnitedStates);
    QCollator collator(locale);
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    return collator;
}

} // namespace

std::vector<NodeId> ScanQuery::sortedIds(const ScanResult& scan, std::string_view focus, bool recursive,
                                         ScanSortField field, SortOrder order,
                                         const CancellationFlag* cancellation) const
{
    const ScanData& d = scan.data();
    std::vector<NodeId> ids;
    const std::int64_t now = currentTime();
    const NodeId start = d.empty() ? kNoNode : d.find(focus);
    if (recursive && start != kNoNode) {
        // Gathered in id order: the rows are sorted next anyway, and reading their records in
        // memory order makes that cheaper too.
        ids.reserve(std::size_t(d[start].fileCount) + d[start].folderCount);
        forEachBelowInIdOrder(scan, start, now, cancellation, [&](NodeId id, const NodeRecord&) { ids.push_back(id); });
    } else {
        forEach(scan, focus, recursive, now, [&](NodeId id) { ids.push_back(id); }, cancellation);
    }
    const bool ascending = order == SortOrder::ascending;

    // Sizes, counts and dates are read straight from the records.
    if (field == ScanSortField::allocatedSize || field == ScanSortField::logicalSize ||
        field == ScanSortField::itemCount || field == ScanSortField::modified) {
        sortByNumberWithPathTies(
            ids, d, ascending,
            [&](NodeId id) -> std::int64_t {
                const NodeRecord& r = d[id];
                switch (field) {
                case ScanSortField::allocatedSize: return r.allocatedSize;
                case ScanSortField::logicalSize: return r.logicalSize;
                case ScanSortField::itemCount: return itemCount(r);
                default: return r.modifiedSeconds;
                }
            },
            [](NodeId id) { return id; }, cancellation);
        return ids;
    }

    // Names and kinds: each distinct text is ranked once with the collator, and the rows are
    // then sorted by that rank like a number. Names repeat a great deal (index.js, README.md,
    // numbered files), so there are far fewer collation keys than rows.
    const QCollator collator = naturalCollator();
    struct Row {
        NodeId id;
        std::uint32_t text; // index of the row's text among the distinct ones
    };
    std::vector<Row> rows;
    rows.reserve(ids.size());
    std::vector<std::string_view> distinct;
    std::unordered_map<std::string_view, std::uint32_t> indexOf;
    std::uint64_t step = 0;
    auto poll = [&] {
        if (cancellation && (++step & 1023) == 0)
            cancellation->check();
    };
    for (NodeId id : ids) {
        poll();
        const std::string_view text = field == ScanSortField::name ? d.name(id) : kindName(d, id);
        const auto [it, added] = indexOf.try_emplace(text, std::uint32_t(distinct.size()));
        if (added)
            distinct.push_back(text);
        rows.push_back({id, it->second});
    }
    std::vector<QCollatorSortKey> keys;
    keys.reserve(distinct.size());
    for (std::string_view text : distinct) {
        poll();
        keys.push_back(collator.sortKey(QString::fromUtf8(text.data(), qsizetype(text.size()))));
    }
    std::vector<std::uint32_t> byKey(distinct.size());
    for (std::uint32_t i = 0; i < byKey.size(); ++i)
        byKey[i] = i;
    std::sort(byKey.begin(), byKey.end(), [&](std::uint32_t x, std::uint32_t y) {
        poll();
        return keys[x].compare(keys[y]) < 0;
    });
    // Texts the collator holds equal ("File" and "file") share a rank; the path decides then.
    std::vector<std::int64_t> rank(distinct.size());
    std::int64_t current = 0;
    for (std::size_t i = 0; i < byKey.size(); ++i) {
        if (i > 0 && keys[byKey[i - 1]].compare(keys[byKey[i]]) != 0)
            ++current;
        rank[byKey[i]] = current;
    }
    sortByNumberWithPathTies(
        rows, d, ascending, [&](const Row& row) { return rank[row.text]; }, [](const Row& row) { return row.id; },
        cancellation);
    std::vector<NodeId> out;
    out.reserve(rows.size());
    for (const Row& row : rows)
        out.push_back(row.id);
    return out;
}

std::vector<std::string> ScanQuery::sortedPaths(const ScanResult& scan, std::string_view focus, bool recursive,
                                                ScanSortField field, SortOrder order,
                                                const CancellationFlag* cancellation) const
{
    std::vector<std::string> out;
    for (NodeId id : sortedIds(scan, focus, recursive, field, order, cancellation))
        out.push_back(scan->path(id));
    return out;
}

} // namespace tarnbridge
