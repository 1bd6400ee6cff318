#pragma once

#include <QStyledItemDelegate>
#include <QWidget>

class QLabel;
class QListView;
class QStackedWidget;

namespace tarnbridge::app {

class AppModel;
class EmptyState;
class FolderGridModel;

// Paints one FolderCard: symbol, name, size, item count, and for a folder with type totals a
// bar of them in the category colours of the charts.
class FolderCardDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    FolderCardDelegate(AppModel& app, FolderGridModel& model, QObject* parent = nullptr);
    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

    static constexpr QSize kCardSize{224, 112};
    // Where the type bar lies inside a card's rectangle.
    static QRect barRect(const QRect& card);

private:
    AppModel& app_;
    FolderGridModel& model_;
};

// "Folders": the children of the focus as a grid of cards. A click selects, a double click or
// Enter opens a folder, Backspace goes up, the menu key opens the record's menu.
class FolderGridView : public QWidget {
    Q_OBJECT
public:
    explicit FolderGridView(AppModel& app, QWidget* parent = nullptr);

    QListView* grid() const { return grid_; }
    FolderGridModel* model() const { return model_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void update();
    void showSelection();
    void showMenu(const QPoint& at);

    AppModel& app_;
    FolderGridModel* model_ = nullptr;
    QLabel* count_ = nullptr;
    QStackedWidget* body_ = nullptr;
    QListView* grid_ = nullptr;
    EmptyState* none_ = nullptr;     // a folder without children
    EmptyState* filtered_ = nullptr; // children, none passing the filters
};

} // namespace tarnbridge::app
