#pragma once

#include <QWidget>

class QComboBox;
class QGraphicsOpacityEffect;
class QLabel;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTreeWidget;
class QTreeWidgetItem;

namespace tarnbridge::app {

class AppModel;
class EmptyState;

// "Top Sizes": the biggest records of the current folder or of the whole scan, ranked, 200 at
// a time, each with a bar against the biggest.
class TopSizesView : public QWidget {
    Q_OBJECT
public:
    explicit TopSizesView(AppModel& app, QWidget* parent = nullptr);

    QTreeWidget* list() const { return list_; }

    static constexpr int kPathRole = Qt::UserRole + 1; // the row's path, as bytes

private:
    void update();
    void showMenu(const QPoint& at);
    void open(QTreeWidgetItem* item);

    AppModel& app_;
    QComboBox* scope_ = nullptr;
    QLabel* count_ = nullptr;
    QProgressBar* busy_ = nullptr;
    QStackedWidget* body_ = nullptr;
    QTreeWidget* list_ = nullptr;
    EmptyState* empty_ = nullptr;
    QPushButton* more_ = nullptr;
    QGraphicsOpacityEffect* dim_ = nullptr;
};

} // namespace tarnbridge::app
