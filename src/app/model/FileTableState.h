#pragma once

#include <QObject>
#include <QString>

#include <memory>
#include <optional>
#include <vector>

#include "app/model/BackgroundQuery.h"
#include "app/model/ExploreState.h"
#include "query/ScanQuery.h"

namespace tarnbridge::app {

class AppModel;

// What the table's rows depend on.
struct TableQueryKey {
    ExplorerQueryKey query;
    bool recursive = false;
    ScanSortField field = ScanSortField::allocatedSize;
    SortOrder order = SortOrder::descending;
    bool operator==(const TableQueryKey&) const = default;
};

// The sorted listing of the focus folder, or of everything below it. It holds the sorted ids of
// the scan it was made from (4 bytes a row), never records or paths: rows are looked up when
// shown. The sort runs in the background and only while the table is the view shown.
class FileTableState : public QObject {
    Q_OBJECT
public:
    explicit FileTableState(AppModel& app);
    ~FileTableState() override;

    bool recursive() const { return recursive_; }
    void setRecursive(bool on);
    ScanSortField sortField() const { return field_; }
    SortOrder sortOrder() const { return order_; }
    void sortBy(ScanSortField field, SortOrder order);

    // The rows of the last finished query (of the current key or, while `isPending`, an older one).
    std::size_t rowCount() const;
    std::size_t shownCount() const;
    // The record of row `row` from the scan the rows came from; nothing when it is gone.
    std::optional<DiskNode> row(std::size_t row) const;
    NodeId idAt(std::size_t row) const;
    const ScanResult* rowsScan() const;
    bool isPending() const { return query_.isPending(); }
    int queriesStarted() const { return query_.startedCount(); }

    std::size_t visibleLimit() const { return visibleLimit_; }
    void showMore();
    // "12 rows", "Updating", or "Showing 500 of 2,000 rows — export includes all rows."
    QString status() const;
    // Every row to CSV, not only those shown.
    void exportCSV();

    // Asks for the rows of the current key when the table is shown.
    void refresh();

    static constexpr std::size_t kPage = 500;

Q_SIGNALS:
    void rowsChanged();    // new rows: a different listing
    void limitChanged();   // more of the same rows shown
    void pendingChanged(); // a query started or ended

private:
    struct Rows {
        ScanResult scan;
        std::shared_ptr<const std::vector<NodeId>> ids;
    };
    TableQueryKey currentKey() const;

    AppModel& app_;
    bool recursive_ = false;
    ScanSortField field_ = ScanSortField::allocatedSize;
    SortOrder order_ = SortOrder::descending;
    std::size_t visibleLimit_ = kPage;
    BackgroundQuery<TableQueryKey, Rows> query_;
    bool wasPending_ = false;
};

} // namespace tarnbridge::app
