#pragma once

#include <QAbstractTableModel>
#include <QWidget>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "snapshots/SnapshotStore.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QMessageBox;
class QPushButton;
class QToolButton;
class QTreeView;
class QTreeWidget;

namespace tarnbridge::app {

class AppModel;
class EmptyState;

// The rows of the change list that are drawn: a page of pointers into the model's comparison,
// never a copy of it.
class ChangeTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { pathColumn, statusColumn, beforeColumn, afterColumn, changeColumn, kColumns };
    using QAbstractTableModel::QAbstractTableModel;

    void setRows(std::vector<const SnapshotChange*> rows, std::optional<std::string> root);
    const SnapshotChange* change(int row) const { return rows_.at(std::size_t(row)); }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    std::vector<const SnapshotChange*> rows_;
    std::optional<std::string> root_;
};

// Saved scans: the catalog, saving and comparing them, and the list of what changed.
class SnapshotsScreen : public QWidget {
    Q_OBJECT
public:
    explicit SnapshotsScreen(AppModel& app, QWidget* parent = nullptr);

    QTreeWidget* catalog() const { return catalog_; }
    QTreeView* changeList() const { return changes_; }
    ChangeTableModel* changeModel() const { return model_; }
    QCheckBox* topLevelOnly() const { return topLevel_; }
    QComboBox* minimumChange() const { return minimum_; }
    // The delete confirmation while it is open.
    QMessageBox* deleteConfirmation() const { return confirm_; }
    std::size_t changeLimit() const { return limit_; }

    // Asks before the record's saved scan goes.
    void askToDelete(const SnapshotRecord& record);

private:
    void connectControls();
    void refresh();
    void showCatalog();
    void showComparison();
    void showChanges();
    void updateButtons();

    AppModel& app_;
    QPushButton* save_ = nullptr;
    QPushButton* reload_ = nullptr;
    QLabel* status_ = nullptr;
    QCheckBox* enabled_ = nullptr;
    QToolButton* issuesToggle_ = nullptr;
    QTreeWidget* issues_ = nullptr;
    EmptyState* empty_ = nullptr;
    QLabel* before_ = nullptr;
    QWidget* compareCard_ = nullptr;
    QComboBox* pickBefore_ = nullptr;
    QComboBox* pickAfter_ = nullptr;
    QTreeWidget* catalog_ = nullptr;
    QWidget* results_ = nullptr;
    QLabel* comparisonTitle_ = nullptr;
    QLabel* measure_ = nullptr;
    QLabel* incomplete_ = nullptr;
    QCheckBox* topLevel_ = nullptr;
    QComboBox* minimum_ = nullptr;
    QLabel* none_ = nullptr;
    QTreeView* changes_ = nullptr;
    ChangeTableModel* model_ = nullptr;
    QPushButton* more_ = nullptr;
    QMessageBox* confirm_ = nullptr;

    std::optional<SnapshotRecord> deleting_;
    std::size_t limit_ = 300;
    const SnapshotChange* shownChanges_ = nullptr; // which comparison the list shows
};

} // namespace tarnbridge::app
