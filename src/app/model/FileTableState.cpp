#include "app/model/FileTableState.h"

#include <QLocale>

#include "app/model/AppModel.h"
#include "app/model/ExportFlow.h"
#include "app/model/ScanSession.h"

namespace tarnbridge::app {

FileTableState::FileTableState(AppModel& app)
    : QObject(&app), app_(app), query_(this, app.workPool(), [this] {
          visibleLimit_ = kPage;
          Q_EMIT rowsChanged();
          wasPending_ = false;
          Q_EMIT pendingChanged();
      })
{
    auto& session = app_.session();
    connect(&session, &ScanSession::scanChanged, this, &FileTableState::refresh);
    connect(&session, &ScanSession::focusChanged, this, &FileTableState::refresh);
    connect(&session, &ScanSession::progressChanged, this, &FileTableState::refresh);
    connect(&app_.explore(), &ExploreState::displayChanged, this, &FileTableState::refresh);
    connect(&app_.explore(), &ExploreState::filtersChanged, this, &FileTableState::refresh);
}

FileTableState::~FileTableState() = default;

void FileTableState::setRecursive(bool on)
{
    if (recursive_ != on) {
        recursive_ = on;
        refresh();
    }
}

void FileTableState::sortBy(ScanSortField field, SortOrder order)
{
    if (field_ != field || order_ != order) {
        field_ = field;
        order_ = order;
        refresh();
    }
}

TableQueryKey FileTableState::currentKey() const
{
    TableQueryKey key;
    key.query = app_.explore().queryKey();
    key.recursive = recursive_;
    key.field = field_;
    key.order = order_;
    return key;
}

void FileTableState::refresh()
{
    const auto& scan = app_.session().scan();
    if (!scan || app_.scanning()) {
        if (query_.key() || query_.value()) {
            query_.reset();
            Q_EMIT rowsChanged();
        }
        return;
    }
    if (app_.explore().storageView() != StorageView::table)
        return; // asked again when the table is shown
    const TableQueryKey key = currentKey();
    query_.request(key, [scan = *scan, key](const CancellationFlag& flag) {
        auto ids = std::make_shared<const std::vector<NodeId>>(
            key.query.filter.sortedIds(scan, key.query.focus, key.recursive, key.field, key.order, &flag));
        return Rows{scan, std::move(ids)};
    });
    if (query_.isPending() != wasPending_) {
        wasPending_ = query_.isPending();
        Q_EMIT pendingChanged();
    }
}

std::size_t FileTableState::rowCount() const
{
    const auto& rows = query_.value();
    return rows && rows->ids ? rows->ids->size() : 0;
}

std::size_t FileTableState::shownCount() const
{
    return std::min(rowCount(), visibleLimit_);
}

NodeId FileTableState::idAt(std::size_t row) const
{
    return row < rowCount() ? (*query_.value()->ids)[row] : kNoNode;
}

const ScanResult* FileTableState::rowsScan() const
{
    return query_.value() ? &query_.value()->scan : nullptr;
}

std::optional<DiskNode> FileTableState::row(std::size_t row) const
{
    const NodeId id = idAt(row);
    if (id == kNoNode)
        return std::nullopt;
    return query_.value()->scan.data().nodeWithoutChildren(id);
}

void FileTableState::showMore()
{
    if (shownCount() < rowCount()) {
        visibleLimit_ += kPage;
        Q_EMIT limitChanged();
    }
}

QString FileTableState::status() const
{
    if (isPending())
        return QStringLiteral("Updating");
    const QLocale locale;
    const std::size_t total = rowCount();
    if (shownCount() < total)
        return QStringLiteral("Showing ") + locale.toString(qulonglong(shownCount())) + QStringLiteral(" of ") +
               locale.toString(qulonglong(total)) + QStringLiteral(" rows — export includes all rows.");
    return locale.toString(qulonglong(total)) + QStringLiteral(" rows");
}

void FileTableState::exportCSV()
{
    if (const auto& rows = query_.value(); rows && !isPending())
        app_.exports().exportCSV(rows->scan, rows->ids);
}

} // namespace tarnbridge::app
