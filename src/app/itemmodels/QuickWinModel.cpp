#include "app/itemmodels/QuickWinModel.h"

#include "app/model/AppTypes.h"
#include "app/shell/ShellTexts.h"

namespace tarnbridge::app {

QuickWinModel::QuickWinModel(QObject* parent)
    : QAbstractTableModel(parent) {}

void QuickWinModel::setNodes(std::vector<DiskNode> nodes) {
    if (nodes == nodes_)
        return; // a repeated update keeps the selection and the scroll position
    beginResetModel();
    nodes_ = std::move(nodes);
    endResetModel();
}

const DiskNode* QuickWinModel::record(int row) const {
    return row >= 0 && row < int(nodes_.size()) ? &nodes_[std::size_t(row)] : nullptr;
}

int QuickWinModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(nodes_.size());
}

int QuickWinModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : columnCount_;
}

QVariant QuickWinModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const DiskNode& node = nodes_[std::size_t(index.row())];
    const int column = index.column();
    switch (role) {
    case Qt::DisplayRole:
        switch (column) {
        case name:
            return displayText(node.name());
        case location:
            return node.parent ? displayText(*node.parent) : QString();
        case size:
            return ShellTexts::bytes(node.allocatedSize); // a win is always measured allocated
        }
        break;
    case Qt::DecorationRole:
        if (column == name)
            return ShellTexts::icon(node.isDirectory ? "folder" : "text-x-generic");
        break;
    case Qt::ToolTipRole:
        return displayText(node.path);
    case Qt::TextAlignmentRole:
        if (column == size)
            return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
        break;
    case kPathRole:
        return QByteArray::fromStdString(node.path);
    }
    return {};
}

QVariant QuickWinModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case name:
        return QStringLiteral("Name");
    case location:
        return QStringLiteral("Location");
    case size:
        return QStringLiteral("Size on disk");
    }
    return {};
}

} // namespace tarnbridge::app
