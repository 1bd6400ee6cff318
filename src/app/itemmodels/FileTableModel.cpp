#include "app/itemmodels/FileTableModel.h"

#include <QDateTime>
#include <QLocale>

#include "app/model/AppTypes.h"
#include "app/model/FileTableState.h"
#include "app/shell/ShellTexts.h"

namespace tarnbridge::app {

FileTableModel::FileTableModel(FileTableState& state, QObject* parent) : QAbstractTableModel(parent), state_(state)
{
    connect(&state_, &FileTableState::rowsChanged, this, &FileTableModel::reset);
    connect(&state_, &FileTableState::limitChanged, this, &FileTableModel::grow);
    rows_ = int(state_.shownCount());
}

void FileTableModel::reset()
{
    beginResetModel();
    cache_.clear();
    recent_.clear();
    rows_ = int(state_.shownCount());
    endResetModel();
}

void FileTableModel::grow()
{
    const int shown = int(state_.shownCount());
    if (shown <= rows_)
        return;
    beginInsertRows({}, rows_, shown - 1);
    rows_ = shown;
    endInsertRows();
}

int FileTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : rows_;
}

int FileTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : columnCount_;
}

std::optional<ScanSortField> FileTableModel::fieldOf(int column)
{
    switch (column) {
    case name: return ScanSortField::name;
    case kind: return ScanSortField::kindName;
    case allocated: return ScanSortField::allocatedSize;
    case logical: return ScanSortField::logicalSize;
    case items: return ScanSortField::itemCount;
    case modified: return ScanSortField::modified;
    default: return std::nullopt;
    }
}

std::optional<DiskNode> FileTableModel::record(int row) const
{
    if (row < 0 || row >= rows_)
        return std::nullopt;
    if (const auto hit = cache_.find(row); hit != cache_.end()) {
        recent_.splice(recent_.begin(), recent_, hit->second.second);
        return hit->second.first;
    }
    std::optional<DiskNode> node = state_.row(std::size_t(row));
    if (!node)
        return std::nullopt;
    if (cache_.size() >= kCacheSize) {
        cache_.erase(recent_.back());
        recent_.pop_back();
    }
    recent_.push_front(row);
    cache_.emplace(row, std::make_pair(*node, recent_.begin()));
    return node;
}

QVariant FileTableModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const auto node = record(index.row());
    if (!node)
        return {};
    const int column = index.column();
    switch (role) {
    case Qt::DisplayRole:
        switch (column) {
        case name: return displayText(node->name());
        case kind: return state_.rowsScan() ? ShellTexts::kindName(*state_.rowsScan(), *node) : QString();
        case allocated: return ShellTexts::bytes(node->allocatedSize);
        case logical: return ShellTexts::bytes(node->logicalSize);
        case items: return node->isDirectory ? ShellTexts::number(node->fileCount + node->folderCount) : QString();
        case modified:
            return node->modified > 0
                       ? QLocale().toString(QDateTime::fromSecsSinceEpoch(node->modified), QLocale::ShortFormat)
                       : QString();
        }
        break;
    case Qt::DecorationRole:
        if (column == name)
            return ShellTexts::icon(node->isDirectory ? "folder" : "text-x-generic");
        break;
    case Qt::ToolTipRole:
        if (column == name)
            return displayText(node->path);
        break;
    case Qt::TextAlignmentRole:
        if (column == allocated || column == logical || column == items)
            return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
        break;
    case kPathRole:
        return QByteArray::fromStdString(node->path);
    }
    return {};
}

QVariant FileTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case name: return QStringLiteral("Name");
    case kind: return QStringLiteral("Kind");
    case allocated: return QStringLiteral("Size on disk");
    case logical: return QStringLiteral("Logical size");
    case items: return QStringLiteral("Items");
    case modified: return QStringLiteral("Modified");
    }
    return {};
}

void FileTableModel::sort(int column, Qt::SortOrder order)
{
    if (const auto field = fieldOf(column))
        state_.sortBy(*field, order == Qt::AscendingOrder ? SortOrder::ascending : SortOrder::descending);
}

} // namespace tarnbridge::app
