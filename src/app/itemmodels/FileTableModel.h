#pragma once

#include <QAbstractTableModel>

#include <list>
#include <optional>
#include <unordered_map>

#include "model/DiskNode.h"
#include "query/ScanQuery.h"

namespace tarnbridge::app {

class FileTableState;

// The table's rows for a QTableView: the shown rows of FileTableState, each record looked up
// only when a row is painted and kept in a small cache. Sorting asks the state for the core's
// table order; ties stay in path order.
class FileTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { name, kind, allocated, logical, items, modified, columnCount_ };
    static constexpr int kPathRole = Qt::UserRole + 1; // the path's bytes, as a QByteArray

    explicit FileTableModel(FileTableState& state, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    void sort(int column, Qt::SortOrder order) override;

    // The record of a shown row.
    std::optional<DiskNode> record(int row) const;
    static std::optional<ScanSortField> fieldOf(int column);

    static constexpr std::size_t kCacheSize = 2048;

private:
    void reset();
    void grow();

    FileTableState& state_;
    int rows_ = 0;
    // Records of rows seen lately, so that scrolling back and forth builds no path twice.
    mutable std::unordered_map<int, std::pair<DiskNode, std::list<int>::iterator>> cache_;
    mutable std::list<int> recent_; // most recent first
};

} // namespace tarnbridge::app
