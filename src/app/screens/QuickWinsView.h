#pragma once

#include <QWidget>

#include <string>
#include <vector>

#include "model/DiskNode.h"

class QHBoxLayout;
class QLabel;
class QPushButton;
class QStackedWidget;
class QToolButton;
class QTreeView;

namespace tarnbridge::app {

class AppModel;
class EmptyState;
class QuickWinModel;

// The candidates of the active quick win that pass the filters, with the kind's explanation
// and an action that stages every candidate the cleanup policy accepts.
class QuickWinsView : public QWidget {
    Q_OBJECT
public:
    explicit QuickWinsView(AppModel& app, QWidget* parent = nullptr);

    QTreeView* list() const { return list_; }
    QuickWinModel* model() const { return model_; }
    QPushButton* stageButton() const { return stage_; }

private:
    void update();
    void updateStaging();
    void stageAll();
    void showMenu(const QPoint& at);

    AppModel& app_;
    QuickWinModel* model_ = nullptr;
    QHBoxLayout* symbolSlot_ = nullptr;
    QWidget* symbol_ = nullptr;
    int symbolKind_ = -1;
    QLabel* name_ = nullptr;
    QLabel* explanation_ = nullptr;
    QLabel* bytes_ = nullptr;
    QPushButton* stage_ = nullptr;
    QToolButton* close_ = nullptr;
    QStackedWidget* body_ = nullptr;
    QTreeView* list_ = nullptr;
    EmptyState* filtered_ = nullptr; // candidates, none passing the filters
    EmptyState* none_ = nullptr;     // no candidates at all
    std::vector<DiskNode> shown_;
    std::vector<std::string> stageable_; // the shown candidates the policy accepts
};

} // namespace tarnbridge::app
