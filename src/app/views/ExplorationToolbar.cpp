#include "app/views/ExplorationToolbar.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>
#include <QStandardItemModel>
#include <QToolButton>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/views/ChartEnums.h"

namespace tarnbridge::app {

namespace {

constexpr StorageView kViews[] = {
    StorageView::treemap,  StorageView::folders, StorageView::sunburst,
    StorageView::flame,    StorageView::bubbles, StorageView::mindMap,
    StorageView::topSizes, StorageView::ageMap,  StorageView::table};
constexpr ColorMode kColorModes[] = {ColorMode::folder, ColorMode::type, ColorMode::age};

} // namespace

ExplorationToolbar::ExplorationToolbar(AppModel& app, QWidget* parent)
    : QWidget(parent)
    , app_(app)
    , view_(new QComboBox(this))
    , color_(new QComboBox(this))
    , depthLabel_(new QLabel(this))
    , depth_(new QSlider(Qt::Horizontal, this))
    , labels_(new QToolButton(this)) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);

    for (StorageView view : kViews)
        view_->addItem(viewTitle(view), int(view));
    view_->setAccessibleName(tr("View"));
    view_->setToolTip(tr("View"));
    for (ColorMode mode : kColorModes)
        color_->addItem(colorModeTitle(mode), int(mode));
    color_->setAccessibleName(tr("Colours"));
    color_->setToolTip(tr("What the colours mean"));

    depth_->setRange(1, 9);
    depth_->setSingleStep(1);
    depth_->setPageStep(1);
    depth_->setTickPosition(QSlider::TicksBelow);
    depth_->setTickInterval(1);
    depth_->setFixedWidth(120);
    depth_->setToolTip(tr("How many folder levels to draw"));
    depth_->setAccessibleName(tr("Depth"));
    depthLabel_->setToolTip(depth_->toolTip());
    depthLabel_->setMinimumWidth(depthLabel_->fontMetrics().horizontalAdvance(QStringLiteral("9")) +
                                 4);

    labels_->setText(tr("Labels"));
    labels_->setIcon(QIcon::fromTheme(QStringLiteral("format-text-bold")));
    labels_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    labels_->setCheckable(true);
    labels_->setToolTip(tr("Draw labels on visualisations"));
    labels_->setAccessibleName(tr("Labels"));

    layout->addWidget(view_);
    layout->addWidget(color_);
    layout->addWidget(depth_);
    layout->addWidget(depthLabel_);
    layout->addWidget(labels_);
    layout->addStretch(1);

    ExploreState& explore = app_.explore();
    connect(view_, &QComboBox::activated, this, [this](int index) {
        app_.explore().setStorageView(StorageView(view_->itemData(index).toInt()));
    });
    connect(color_, &QComboBox::activated, this, [this](int index) {
        app_.explore().setColorMode(ColorMode(color_->itemData(index).toInt()));
    });
    connect(depth_, &QSlider::valueChanged, this,
            [this](int value) { app_.explore().setVisualizationDepth(value); });
    connect(labels_, &QToolButton::toggled, this,
            [this](bool on) { app_.explore().setShowLabels(on); });
    connect(&explore, &ExploreState::displayChanged, this, &ExplorationToolbar::refresh);
    connect(&app_.session(), &ScanSession::progressChanged, this, &ExplorationToolbar::refresh);
    connect(&app_.session(), &ScanSession::scanChanged, this, &ExplorationToolbar::refresh);
    refresh();
}

void ExplorationToolbar::refresh() {
    const ExploreState& explore = app_.explore();
    const StorageView current = explore.storageView();
    const bool scanning = app_.session().scanning();
    {
        const QSignalBlocker block(view_);
        auto* items = qobject_cast<QStandardItemModel*>(view_->model());
        for (int row = 0; row < view_->count(); ++row) {
            const StorageView view = StorageView(view_->itemData(row).toInt());
            // While a scan runs only the views it can feed are offered.
            const bool offered = !scanning || showsDuringScan(view);
            view_->setItemText(row, offered ? viewTitle(view)
                                            : viewTitle(view) + tr(" — available after scanning"));
            if (items)
                items->item(row)->setEnabled(offered);
        }
        view_->setCurrentIndex(view_->findData(int(current)));
    }
    {
        const QSignalBlocker block(color_);
        color_->setCurrentIndex(color_->findData(int(explore.colorMode())));
        color_->setEnabled(supportsColor(chartView(current)));
    }
    {
        const QSignalBlocker block(depth_);
        depth_->setValue(explore.visualizationDepth());
    }
    depthLabel_->setText(QString::number(explore.visualizationDepth()));
    depth_->setVisible(isChart(current));
    depthLabel_->setVisible(isChart(current));
    {
        const QSignalBlocker block(labels_);
        labels_->setChecked(explore.showLabels());
    }
}

} // namespace tarnbridge::app
