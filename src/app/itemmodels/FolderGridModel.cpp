#include "app/itemmodels/FolderGridModel.h"

#include <QFile>
#include <QMimeData>
#include <QUrl>

#include <algorithm>

#include "app/model/AppModel.h"
#include "app/model/AppTypes.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/shell/ShellTexts.h"
#include "query/ScanPresentation.h"

namespace tarnbridge::app {

FolderGridModel::FolderGridModel(AppModel& app, QObject* parent)
    : QAbstractListModel(parent)
    , app_(app) {
    ScanSession& session = app_.session();
    ExploreState& explore = app_.explore();
    connect(&session, &ScanSession::scanChanged, this, &FolderGridModel::reload);
    // focusChanged also reports a new selection: a click must not rebuild the grid under it.
    connect(&session, &ScanSession::focusChanged, this, &FolderGridModel::reloadIfMoved);
    // The filters and the measure (which changes the order).
    connect(&explore, &ExploreState::filtersChanged, this, &FolderGridModel::reload);
    connect(&explore, &ExploreState::folderTypesChanged, this, &FolderGridModel::typesChanged);
    reload();
}

void FolderGridModel::reload() {
    beginResetModel();
    const ScanSession& session = app_.session();
    scan_ = session.scan();
    focus_ = scan_ ? session.focusId() : kNoNode;
    folder_ = focus_ == kNoNode ? std::string() : session.focusedPath();
    ids_ = app_.explore().currentChildIds();
    childCount_ = focus_ == kNoNode ? 0 : scan_->data()[focus_].childCount;
    endResetModel();
}

void FolderGridModel::reloadIfMoved() {
    const auto& scan = app_.session().scan();
    const bool sameScan =
        scan.has_value() == scan_.has_value() && (!scan || &scan->data() == &scan_->data());
    if (!sameScan || (scan && app_.session().focusId() != focus_))
        reload();
}

void FolderGridModel::typesChanged() {
    if (!ids_.empty())
        Q_EMIT dataChanged(index(0), index(int(ids_.size()) - 1));
}

int FolderGridModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(ids_.size());
}

Qt::ItemFlags FolderGridModel::flags(const QModelIndex& index) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled |
           Qt::ItemNeverHasChildren;
}

std::string FolderGridModel::pathOf(NodeId id) const {
    const std::string_view name = scan_->data().name(id);
    std::string path = folder_;
    if (path != "/")
        path += '/';
    path += name;
    return path;
}

std::optional<FolderGridModel::Card> FolderGridModel::card(int row) const {
    if (row < 0 || row >= int(ids_.size()))
        return std::nullopt;
    const NodeId id = ids_[std::size_t(row)];
    const ScanData& data = scan_->data();
    const NodeRecord& record = data[id];
    const SizeMeasure measure = app_.explore().measure();
    Card card;
    card.name = displayText(data.name(id));
    card.bytes = record.bytes(measure);
    card.items = itemCount(record);
    card.folder = record.isDirectory();
    if (card.folder) {
        const auto& folderTypes = app_.explore().folderTypes();
        if (const auto hit = folderTypes.find(pathOf(id)); hit != folderTypes.end()) {
            for (const auto& [category, bytes] : hit->second.values(measure))
                if (bytes > 0)
                    card.types.emplace_back(category, bytes);
            std::stable_sort(card.types.begin(), card.types.end(),
                             [](const auto& a, const auto& b) { return a.second > b.second; });
        }
    }
    return card;
}

std::optional<DiskNode> FolderGridModel::record(int row) const {
    if (row < 0 || row >= int(ids_.size()))
        return std::nullopt;
    return scan_->data().nodeWithoutChildren(ids_[std::size_t(row)], folder_);
}

int FolderGridModel::rowOf(const std::string& path) const {
    if (focus_ == kNoNode)
        return -1;
    const NodeId id = scan_->find(path);
    if (id == kNoNode || scan_->data()[id].parent != focus_)
        return -1;
    const auto at = std::find(ids_.begin(), ids_.end(), id);
    return at == ids_.end() ? -1 : int(at - ids_.begin());
}

QVariant FolderGridModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const NodeId id = ids_[std::size_t(index.row())];
    const ScanData& data = scan_->data();
    const NodeRecord& record = data[id];
    switch (role) {
    case Qt::DisplayRole:
        return displayText(data.name(id));
    case Qt::ToolTipRole:
        return displayText(pathOf(id));
    case Qt::DecorationRole: {
        const std::string symbol(chartSymbol(data, id));
        return ShellTexts::icon(symbol.c_str());
    }
    case Qt::AccessibleTextRole:
        return QString(displayText(data.name(id)) + QStringLiteral(", ") +
                       ShellTexts::bytes(record.bytes(app_.explore().measure())));
    case PathRole:
        return QByteArray::fromStdString(pathOf(id));
    case BytesRole:
        return qint64(record.bytes(app_.explore().measure()));
    case ItemsRole:
        return qint64(itemCount(record));
    case FolderRole:
        return record.isDirectory();
    }
    return {};
}

QStringList FolderGridModel::mimeTypes() const {
    return {QStringLiteral("text/uri-list")};
}

QMimeData* FolderGridModel::mimeData(const QModelIndexList& indexes) const {
    QList<QUrl> urls;
    for (const QModelIndex& index : indexes)
        if (checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
            urls << QUrl::fromLocalFile(QFile::decodeName(
                QByteArray::fromStdString(pathOf(ids_[std::size_t(index.row())]))));
    if (urls.isEmpty())
        return nullptr;
    auto* data = new QMimeData;
    data->setUrls(urls);
    return data;
}

QHash<int, QByteArray> FolderGridModel::roleNames() const {
    QHash<int, QByteArray> names = QAbstractListModel::roleNames();
    names.insert(PathRole, "path");
    names.insert(BytesRole, "bytes");
    names.insert(ItemsRole, "items");
    names.insert(FolderRole, "folder");
    return names;
}

} // namespace tarnbridge::app
