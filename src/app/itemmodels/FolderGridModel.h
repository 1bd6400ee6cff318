#pragma once

#include <QAbstractListModel>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "model/DiskNode.h"
#include "model/ScanResult.h"
#include "query/FileCategory.h"

namespace tarnbridge::app {

class AppModel;

// The cards of the folder grid: the focus's children that pass the filters, as ids. A card's
// facts are read from the scan's arena when it is painted; a DiskNode is made only for the
// card a click or a menu acts on, so a folder of 100,000 entries costs one id each.
class FolderGridModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role {
        PathRole = Qt::UserRole + 1, // the path's bytes, as a QByteArray
        BytesRole,                   // the shown measure, qint64
        ItemsRole,                   // itemCount, qint64
        FolderRole,                  // bool
    };

    struct Card {
        QString name;
        std::int64_t bytes = 0;
        std::int64_t items = 0;
        bool folder = false;
        // The folder's type totals in the shown measure, largest first; empty without an entry.
        std::vector<std::pair<FileCategory::Value, std::int64_t>> types;
    };

    explicit FolderGridModel(AppModel& app, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QHash<int, QByteArray> roleNames() const override;
    // A card dragged to a file manager or a terminal carries its path as a text/uri-list.
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;

    std::optional<Card> card(int row) const;
    std::optional<DiskNode> record(int row) const;
    // The row of a child of the focus, or -1.
    int rowOf(const std::string& path) const;
    // The focus's children before the filters: tells an empty folder from a filtered one.
    std::size_t childCount() const { return childCount_; }

private:
    void reload();
    void reloadIfMoved();
    void typesChanged();
    std::string pathOf(NodeId id) const;

    AppModel& app_;
    std::optional<ScanResult> scan_; // keeps the ids valid until the next reload
    NodeId focus_ = kNoNode;
    std::string folder_;
    std::vector<NodeId> ids_;
    std::size_t childCount_ = 0;
};

} // namespace tarnbridge::app
