#pragma once

#include <QWidget>

#include <vector>

class QAbstractButton;
class QGraphicsOpacityEffect;
class QLabel;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace tarnbridge::app {

class AgeHeatMap;
class AppModel;

// How old the bytes below the focus are: six bars by age class, a heat map of months, and the
// files of the chosen bar or month, else the big untouched ones. Shows the last result dimmed
// under a spinner while the current one is prepared.
class AgeMapView : public QWidget {
    Q_OBJECT
public:
    explicit AgeMapView(AppModel& app, QWidget* parent = nullptr);

    // The six bars, in the order of the age classes.
    const std::vector<QAbstractButton*>& bars() const { return bars_; }
    AgeHeatMap& heatMap() const { return *heatMap_; }
    QTreeWidget& list() const { return *list_; }

private:
    QWidget* makeSummary();
    QWidget* makeListing();
    void refresh();
    void fillBars();
    void fillHeatMap();
    void fillListing();
    void fillStaging();
    void openMenu(const QPoint& position);
    void openRow(QTreeWidgetItem* item);

    AppModel& app_;
    QWidget* busy_ = nullptr;
    QLabel* preparing_ = nullptr;
    QWidget* summary_ = nullptr;
    QWidget* listing_ = nullptr;
    QGraphicsOpacityEffect* summaryDim_ = nullptr;
    QGraphicsOpacityEffect* listingDim_ = nullptr;
    std::vector<QAbstractButton*> bars_;
    AgeHeatMap* heatMap_ = nullptr;
    QWidget* heatScroll_ = nullptr;
    QWidget* swatches_ = nullptr;
    QLabel* heatEmpty_ = nullptr;
    QWidget* legend_ = nullptr;
    QLabel* busiest_ = nullptr;
    QLabel* listTitle_ = nullptr;
    QLabel* listSubtitle_ = nullptr;
    QLabel* listHeader_ = nullptr;
    QPushButton* clear_ = nullptr;
    QPushButton* stage_ = nullptr;
    QLabel* saved_ = nullptr;
    QTreeWidget* list_ = nullptr;
    QLabel* listEmpty_ = nullptr;
    QPushButton* more_ = nullptr;
};

} // namespace tarnbridge::app
