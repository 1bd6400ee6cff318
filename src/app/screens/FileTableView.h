#pragma once

#include <QWidget>

class QCheckBox;
class QGraphicsOpacityEffect;
class QLabel;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTableView;

namespace tarnbridge::app {

class AppModel;
class EmptyState;
class FileTableModel;

// The sortable listing of the focus folder (or everything below it): 500 rows at a time, all
// of them in the CSV export.
class FileTableView : public QWidget {
    Q_OBJECT
public:
    explicit FileTableView(AppModel& app, QWidget* parent = nullptr);

    QTableView* table() const { return table_; }
    FileTableModel* model() const { return model_; }

private:
    void update();
    void showMenu(const QPoint& at);

    AppModel& app_;
    FileTableModel* model_ = nullptr;
    QCheckBox* recursive_ = nullptr;
    QLabel* status_ = nullptr;
    QProgressBar* busy_ = nullptr;
    QPushButton* more_ = nullptr;
    QPushButton* export_ = nullptr;
    QStackedWidget* body_ = nullptr;
    QTableView* table_ = nullptr;
    EmptyState* empty_ = nullptr;
    QGraphicsOpacityEffect* dim_ = nullptr;
};

} // namespace tarnbridge::app
