#pragma once

#include <QAbstractTableModel>

#include <vector>

#include "model/DiskNode.h"

namespace tarnbridge::app {

// The candidates of one quick win that pass the filters. A win holds its records already, and
// few of them (the outermost matches), so the rows are those records.
class QuickWinModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { name, location, size, columnCount_ };
    static constexpr int kPathRole = Qt::UserRole + 1; // the path's bytes, as a QByteArray

    explicit QuickWinModel(QObject* parent = nullptr);

    void setNodes(std::vector<DiskNode> nodes);
    const std::vector<DiskNode>& nodes() const { return nodes_; }
    const DiskNode* record(int row) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    std::vector<DiskNode> nodes_;
};

} // namespace tarnbridge::app
