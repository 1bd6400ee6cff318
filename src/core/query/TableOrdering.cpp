#include <QCollator>
#include <QCollatorSortKey>
#include <QString>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <utility>

#include "query/ScanPresentation.h"
#include "query/ScanQuery.h"

namespace tarnbridge {

namespace {

// Natural, case-insensitive order of the user's locale, as a file manager sorts names.
QCollator naturalCollator()
{
    QCollator collator;
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
    forEach(scan, focus, recursive, currentTime(), [&](NodeId id) { ids.push_back(id); }, cancellation);
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

    // One small key per row, computed once: a number, or a rank/sort key for text.
    struct Row {
        NodeId id;
        std::int64_t number;
        std::uint32_t text; // index into `keys` for names
    };
    std::vector<Row> rows;
    rows.reserve(ids.size());
    std::vector<QCollatorSortKey> keys;
    const QCollator collator = naturalCollator();
    std::map<std::string_view, std::int64_t> kindRanks;
    if (field == ScanSortField::kindName) {
        // A handful of distinct words: rank them once with the collator.
        std::vector<std::string_view> words;
        for (NodeId id : ids)
            words.push_back(kindName(d, id));
        std::sort(words.begin(), words.end());
        words.erase(std::unique(words.begin(), words.end()), words.end());
        std::stable_sort(words.begin(), words.end(), [&](std::string_view a, std::string_view b) {
            return collator.compare(QString::fromUtf8(a.data(), qsizetype(a.size())),
                                    QString::fromUtf8(b.data(), qsizetype(b.size()))) < 0;
        });
        for (std::size_t i = 0; i < words.size(); ++i)
            kindRanks[words[i]] = std::int64_t(i);
    }
    std::uint64_t step = 0;
    for (NodeId id : ids) {
        if (cancellation && (++step & 1023) == 0)
            cancellation->check();
        const NodeRecord& r = d[id];
        Row row{id, 0, 0};
        switch (field) {
        case ScanSortField::name: {
            const std::string_view name = d.name(id);
            row.text = std::uint32_t(keys.size());
            keys.push_back(collator.sortKey(QString::fromUtf8(name.data(), qsizetype(name.size()))));
            break;
        }
        case ScanSortField::allocatedSize: row.number = r.allocatedSize; break;
        case ScanSortField::logicalSize: row.number = r.logicalSize; break;
        case ScanSortField::itemCount: row.number = itemCount(r); break;
        case ScanSortField::kindName: row.number = kindRanks[kindName(d, id)]; break;
        case ScanSortField::modified: row.number = r.modifiedSeconds; break;
        }
        rows.push_back(row);
    }

    if (field != ScanSortField::name) {
        sortByNumberWithPathTies(
            rows, d, ascending, [](const Row& row) { return row.number; }, [](const Row& row) { return row.id; },
            cancellation);
        std::vector<NodeId> out;
        out.reserve(rows.size());
        for (const Row& row : rows)
            out.push_back(row.id);
        return out;
    }
    sortWithPathTies(
        rows, d,
        [&](const Row& a, const Row& b) {
            const int r = field == ScanSortField::name
                              ? keys[a.text].compare(keys[b.text])
                              : (a.number < b.number ? -1 : (a.number > b.number ? 1 : 0));
            return ascending ? r < 0 : r > 0;
        },
        [](const Row& row) { return row.id; }, cancellation);
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
