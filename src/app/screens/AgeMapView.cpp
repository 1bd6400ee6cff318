#include "app/screens/AgeMapView.h"

#include <QAbstractButton>
#include <QDateTime>
#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QScrollArea>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <unordered_set>

#include "app/model/AgeMapState.h"
#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "app/screens/AgeHeatMap.h"
#include "app/shell/ShellTexts.h"
#include "app/tools/ToolWidgets.h"
#include "app/views/NodeActions.h"

namespace tarnbridge::app {

namespace {

constexpr int kPathRole = Qt::UserRole + 1;
constexpr int kStagedColumn = 3;

// One age class: its title, a bar as long as its share of the largest class, and its bytes.
class AgeBar : public QAbstractButton {
public:
    explicit AgeBar(AgeRange range) : range_(range)
    {
        setFocusPolicy(Qt::StrongFocus);
        setCursor(Qt::PointingHandCursor);
        setText(QString::fromUtf8(tarnbridge::title(range).data(), qsizetype(tarnbridge::title(range).size())));
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    }
    void setValue(std::int64_t bytes, std::int64_t largest, bool selected)
    {
        bytes_ = bytes;
        fraction_ = largest > 0 ? double(bytes) / double(largest) : 0.0;
        selected_ = selected;
        setAccessibleName(text() + QStringLiteral(", ") + ShellTexts::bytes(bytes));
        setAccessibleDescription(selected ? QStringLiteral("Selected") : QString());
        update();
    }
    QSize sizeHint() const override { return {320, fontMetrics().height() + 14}; }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF area = QRectF(rect()).adjusted(1, 1, -1, -1);
        if (selected_ || underMouse()) {
            QColor back = palette().color(QPalette::Highlight);
            back.setAlphaF(selected_ ? 0.22f : 0.10f);
            painter.setPen(selected_ ? QPen(palette().color(QPalette::Highlight), 1.5) : Qt::NoPen);
            painter.setBrush(back);
            painter.drawRoundedRect(area, 5, 5);
        }
        const int titleWidth = fontMetrics().horizontalAdvance(QStringLiteral("Over 2 years")) + 16;
        const QString size = ShellTexts::bytes(bytes_);
        const int sizeWidth = std::max(fontMetrics().horizontalAdvance(size), fontMetrics().horizontalAdvance(QStringLiteral("999.9 MB"))) + 12;
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawText(QRect(8, 0, titleWidth - 8, height()), Qt::AlignLeft | Qt::AlignVCenter, text());
        painter.drawText(QRect(width() - sizeWidth, 0, sizeWidth - 8, height()), Qt::AlignRight | Qt::AlignVCenter, size);
        const double track = std::max(0, width() - titleWidth - sizeWidth);
        const QRectF bar(titleWidth, height() / 2.0 - 5, std::max(fraction_ > 0 ? 3.0 : 0.0, track * fraction_), 10);
        painter.setPen(Qt::NoPen);
        painter.setBrush(AgeColors::range(range_));
        painter.drawRoundedRect(bar, 3, 3);
        if (hasFocus()) {
            painter.setBrush(Qt::NoBrush);
            painter.setPen(QPen(palette().color(QPalette::Text), 1, Qt::DotLine));
            painter.drawRoundedRect(area.adjusted(1, 1, -1, -1), 4, 4);
        }
    }

private:
    AgeRange range_;
    std::int64_t bytes_ = 0;
    double fraction_ = 0;
    bool selected_ = false;
};

// The seven heat levels, lightest first, for the legend.
class HeatSwatches : public QWidget {
public:
    HeatSwatches() { setFixedSize(7 * (AgeHeatMap::kCell - 4 + 2), AgeHeatMap::kCell - 4); }
    void setDark(bool dark)
    {
        dark_ = dark;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        const int side = height();
        for (int level = 0; level <= 6; ++level) {
            painter.setBrush(AgeColors::heat(level, dark_));
            painter.drawRoundedRect(QRectF(level * (side + 2), 0, side, side), 2, 2);
        }
    }

private:
    bool dark_ = false;
};

// The small spinner of a pending query.
class BusySpinner : public QWidget {
public:
    BusySpinner()
    {
        setFixedSize(18, 18);
        setToolTip(QStringLiteral("Updating results"));
        setAccessibleName(toolTip());
        timer_.setInterval(80);
        QObject::connect(&timer_, &QTimer::timeout, this, [this] {
            angle_ = (angle_ + 30) % 360;
            update();
        });
    }

protected:
    void showEvent(QShowEvent*) override { timer_.start(); }
    void hideEvent(QHideEvent*) override { timer_.stop(); }
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(palette().color(QPalette::PlaceholderText), 2.2, Qt::SolidLine, Qt::RoundCap));
        painter.drawArc(QRectF(rect()).adjusted(2, 2, -2, -2), -angle_ * 16, 270 * 16);
    }

private:
    QTimer timer_;
    int angle_ = 0;
};

QString itemsText(std::int64_t bytes, std::size_t count)
{
    return ShellTexts::bytes(bytes) + QStringLiteral(" across ") + ShellTexts::number(std::int64_t(count)) +
           QStringLiteral(" items");
}

} // namespace

AgeMapView::AgeMapView(AppModel& app, QWidget* parent) : QWidget(parent), app_(app)
{
    setObjectName(QStringLiteral("ageMap"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 12, 16, 12);
    layout->setSpacing(8);

    auto* top = new QHBoxLayout;
    auto* question = ToolWidgets::heading(QStringLiteral("How old are these bytes?"));
    QFont large = question->font();
    large.setPointSizeF(large.pointSizeF() * 1.25);
    question->setFont(large);
    busy_ = new BusySpinner;
    busy_->setObjectName(QStringLiteral("ageMapBusy"));
    top->addWidget(question);
    top->addStretch(1);
    top->addWidget(busy_);
    layout->addLayout(top);

    preparing_ = ToolWidgets::note(QStringLiteral("Preparing age map…"));
    preparing_->setAlignment(Qt::AlignCenter);
    layout->addWidget(preparing_, 1);
    summary_ = makeSummary();
    layout->addWidget(summary_);
    listing_ = makeListing();
    layout->addWidget(listing_, 1);

    AgeMapState& state = app_.explore().ageMap();
    connect(&state, &AgeMapState::changed, this, &AgeMapView::refresh);
    connect(&app_.cleanup(), &CleanupFlow::changed, this, &AgeMapView::refresh);
    connect(&app_.session(), &ScanSession::progressChanged, this, &AgeMapView::refresh);
    connect(&app_.preferences(), &Preferences::changed, this, &AgeMapView::refresh);
    refresh();
}

QWidget* AgeMapView::makeSummary()
{
    auto* box = new QWidget;
    box->setObjectName(QStringLiteral("ageMapSummary"));
    auto* row = new QHBoxLayout(box);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(24);

    auto* barsColumn = new QVBoxLayout;
    barsColumn->setSpacing(2);
    barsColumn->addWidget(ToolWidgets::heading(QStringLiteral("By age")));
    AgeMapState& state = app_.explore().ageMap();
    for (AgeRange range : allAgeRanges()) {
        auto* bar = new AgeBar(range);
        bar->setObjectName(QStringLiteral("ageBar%1").arg(int(range)));
        connect(bar, &QAbstractButton::clicked, &state, [&state, range] { state.selectRange(range); });
        bars_.push_back(bar);
        barsColumn->addWidget(bar);
    }
    barsColumn->addStretch(1);
    row->addLayout(barsColumn, 3);

    auto* heatColumn = new QVBoxLayout;
    heatColumn->setSpacing(6);
    heatColumn->addWidget(ToolWidgets::heading(QStringLiteral("Bytes by last-modified month")));
    heatMap_ = new AgeHeatMap;
    connect(heatMap_, &AgeHeatMap::monthClicked, &state, &AgeMapState::selectMonth);
    // A long history scrolls inside its own box rather than pushing the list away.
    auto* scroll = new QScrollArea;
    heatScroll_ = scroll;
    scroll->setObjectName(QStringLiteral("ageHeatScroll"));
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(heatMap_);
    scroll->setWidgetResizable(false);
    // Transparent, so that the dimmed picture of a pending result keeps the window's colour.
    scroll->viewport()->setAutoFillBackground(false);
    heatMap_->setAutoFillBackground(false);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setMaximumHeight(8 * (AgeHeatMap::kCell + AgeHeatMap::kGap) + fontMetrics().height() + 8);
    scroll->setMinimumWidth(heatMap_->sizeHint().width() + 16);
    heatColumn->addWidget(scroll);
    heatEmpty_ = ToolWidgets::note(QStringLiteral("No timestamps to plot here."));
    heatColumn->addWidget(heatEmpty_);
    legend_ = new QWidget;
    auto* legend = new QHBoxLayout(legend_);
    legend->setContentsMargins(0, 0, 0, 0);
    legend->addWidget(ToolWidgets::note(QStringLiteral("less")));
    swatches_ = new HeatSwatches;
    legend->addWidget(swatches_);
    legend->addWidget(ToolWidgets::note(QStringLiteral("more")));
    legend->addStretch(1);
    heatColumn->addWidget(legend_);
    busiest_ = new QLabel;
    busiest_->setObjectName(QStringLiteral("ageBusiest"));
    heatColumn->addWidget(busiest_);
    heatColumn->addStretch(1);
    row->addLayout(heatColumn, 2);

    summaryDim_ = new QGraphicsOpacityEffect(box);
    summaryDim_->setOpacity(0.45);
    box->setGraphicsEffect(summaryDim_);
    return box;
}

QWidget* AgeMapView::makeListing()
{
    auto* box = new QWidget;
    box->setObjectName(QStringLiteral("ageMapListing"));
    auto* column = new QVBoxLayout(box);
    column->setContentsMargins(0, 8, 0, 0);
    column->setSpacing(6);

    // The heading dims while pending; the rows are disabled instead, as item views do not
    // paint their background under an opacity effect.
    auto* headBox = new QWidget;
    auto* headColumn = new QVBoxLayout(headBox);
    headColumn->setContentsMargins(0, 0, 0, 0);
    headColumn->setSpacing(6);
    auto* head = new QHBoxLayout;
    listTitle_ = ToolWidgets::heading(QString());
    listTitle_->setObjectName(QStringLiteral("ageListTitle"));
    listSubtitle_ = ToolWidgets::note(QString());
    listSubtitle_->setWordWrap(false);
    head->addWidget(listTitle_);
    head->addWidget(listSubtitle_);
    head->addStretch(1);
    clear_ = new QPushButton(QStringLiteral("Clear selection"));
    clear_->setObjectName(QStringLiteral("ageClearSelection"));
    connect(clear_, &QPushButton::clicked, &app_.explore().ageMap(), &AgeMapState::clearSelection);
    stage_ = new QPushButton(ShellTexts::icon("list-add"), QString());
    stage_->setObjectName(QStringLiteral("ageStage"));
    connect(stage_, &QPushButton::clicked, &app_.explore().ageMap(), &AgeMapState::stageListing);
    saved_ = ToolWidgets::note(QStringLiteral("Rescan to stage files from a saved scan."));
    saved_->setWordWrap(false);
    head->addWidget(clear_);
    head->addWidget(stage_);
    head->addWidget(saved_);
    headColumn->addLayout(head);
    listHeader_ = ToolWidgets::note(QString());
    listHeader_->setObjectName(QStringLiteral("ageListHeader"));
    headColumn->addWidget(listHeader_);
    column->addWidget(headBox);

    list_ = new QTreeWidget;
    list_->setObjectName(QStringLiteral("ageList"));
    list_->setRootIsDecorated(false);
    list_->setUniformRowHeights(true);
    list_->setAlternatingRowColors(true);
    list_->setHeaderLabels({QStringLiteral("Name"), QStringLiteral("Modified"), QStringLiteral("Size"), QString()});
    list_->header()->setStretchLastSection(false);
    list_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    list_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    list_->header()->setSectionResizeMode(2, QHeaderView::ResizeToContents);
    list_->header()->setSectionResizeMode(kStagedColumn, QHeaderView::ResizeToContents);
    list_->headerItem()->setTextAlignment(2, Qt::AlignRight | Qt::AlignVCenter);
    list_->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(list_, &QWidget::customContextMenuRequested, this, &AgeMapView::openMenu);
    connect(list_, &QTreeWidget::itemActivated, this, &AgeMapView::openRow);
    column->addWidget(list_, 1);
    listEmpty_ = ToolWidgets::note(QString());
    listEmpty_->setObjectName(QStringLiteral("ageListEmpty"));
    listEmpty_->setAlignment(Qt::AlignCenter);
    column->addWidget(listEmpty_, 1);
    more_ = new QPushButton(QStringLiteral("Show 40 more"));
    more_->setObjectName(QStringLiteral("ageShowMore"));
    connect(more_, &QPushButton::clicked, &app_.explore().ageMap(), &AgeMapState::showMore);
    column->addWidget(more_, 0, Qt::AlignHCenter);

    listingDim_ = new QGraphicsOpacityEffect(headBox);
    listingDim_->setOpacity(0.45);
    headBox->setGraphicsEffect(listingDim_);
    return box;
}

void AgeMapView::refresh()
{
    const AgeMapState& state = app_.explore().ageMap();
    const bool prepared = state.preparedKey().has_value();
    preparing_->setVisible(!prepared);
    summary_->setVisible(prepared);
    listing_->setVisible(prepared);
    busy_->setVisible(state.pending());
    // The last result stays in view while the next is prepared, dimmed: never as if current.
    summaryDim_->setEnabled(state.summaryPending());
    listingDim_->setEnabled(state.pending());
    list_->setEnabled(!state.pending());
    fillBars();
    fillHeatMap();
    fillListing();
    fillStaging();
}

void AgeMapView::fillBars()
{
    const AgeMapState& state = app_.explore().ageMap();
    const auto& totals = state.summary().totals;
    const std::int64_t largest = *std::max_element(totals.begin(), totals.end());
    for (AgeRange range : allAgeRanges())
        static_cast<AgeBar*>(bars_[std::size_t(range)])
            ->setValue(totals[std::size_t(range)], largest, state.selectedRange() == range);
}

void AgeMapView::fillHeatMap()
{
    const AgeMapState& state = app_.explore().ageMap();
    const bool dark = app_.preferences().dark();
    const auto& months = state.summary().months;
    heatMap_->setMonths(months, state.selectedMonth(), dark);
    heatMap_->resize(heatMap_->sizeHint());
    heatScroll_->setVisible(!months.empty());
    heatEmpty_->setVisible(months.empty());
    legend_->setVisible(!months.empty());
    static_cast<HeatSwatches*>(swatches_)->setDark(dark);
    const auto busiest = state.busiestMonth();
    busiest_->setVisible(bool(busiest));
    if (busiest)
        busiest_->setText(QStringLiteral("Busiest month: ") + AgeColors::monthName(*busiest));
}

void AgeMapView::fillListing()
{
    const AgeMapState& state = app_.explore().ageMap();
    const auto range = state.selectedRange();
    const auto month = state.selectedMonth();
    if (month)
        listTitle_->setText(AgeColors::monthName(*month));
    else if (range)
        listTitle_->setText(QString::fromUtf8(tarnbridge::title(*range).data(), qsizetype(tarnbridge::title(*range).size())));
    else
        listTitle_->setText(QStringLiteral("Big & untouched"));
    listSubtitle_->setText(QStringLiteral("over a year old"));
    listSubtitle_->setVisible(!range && !month);
    clear_->setVisible(range || month);

    const AgeListing& listing = state.listing();
    listHeader_->setText(itemsText(listing.bytes, listing.ids.size()));
    listHeader_->setVisible(!listing.ids.empty());
    listEmpty_->setText(range || month ? QStringLiteral("No files in this period.")
                                       : QStringLiteral("No files over 40 MB have gone a year without being touched."));
    listEmpty_->setVisible(listing.ids.empty());
    list_->setVisible(!listing.ids.empty());
    more_->setVisible(listing.ids.size() > std::size_t(state.limit()));

    std::unordered_set<std::string> staged;
    for (const CleanupEntry& entry : app_.cleanup().queue())
        staged.insert(entry.node.path);
    const std::vector<DiskNode> rows = state.rows();
    const SizeMeasure measure = app_.explore().measure();
    // Rows already shown stay (with their selection and scroll position) when more are added.
    int keep = 0;
    while (keep < list_->topLevelItemCount() && std::size_t(keep) < rows.size() &&
           list_->topLevelItem(keep)->data(0, kPathRole).toByteArray() == QByteArray::fromStdString(rows[std::size_t(keep)].path))
        ++keep;
    while (list_->topLevelItemCount() > keep)
        delete list_->takeTopLevelItem(list_->topLevelItemCount() - 1);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const DiskNode& node = rows[i];
        QTreeWidgetItem* item = int(i) < keep ? list_->topLevelItem(int(i)) : nullptr;
        if (!item) {
            item = new QTreeWidgetItem(list_);
            item->setIcon(0, ShellTexts::icon("text-x-generic"));
            item->setText(0, displayText(node.name()));
            item->setToolTip(0, displayText(node.path));
            item->setData(0, kPathRole, QByteArray::fromStdString(node.path));
            if (node.modified > 0)
                item->setText(1, QLocale().toString(QDateTime::fromSecsSinceEpoch(node.modified).date(),
                                                    QLocale::ShortFormat));
            item->setTextAlignment(2, Qt::AlignRight | Qt::AlignVCenter);
        }
        item->setText(2, ShellTexts::bytes(node.bytes(measure)));
        item->setText(kStagedColumn, staged.contains(node.path) ? QStringLiteral("Selected in Explore") : QString());
    }
}

void AgeMapView::fillStaging()
{
    const AgeMapState& state = app_.explore().ageMap();
    const bool historical = app_.session().isHistorical();
    const std::size_t count = state.listing().ids.size();
    saved_->setVisible(historical && count > 0);
    stage_->setVisible(!historical && count > 0);
    const bool filtered = !app_.explore().activeFilters().empty();
    stage_->setText(QStringLiteral("Add ") + ShellTexts::number(std::int64_t(count)) +
                    (filtered ? QStringLiteral(" matching files to Cleanup") : QStringLiteral(" to Cleanup")));
    stage_->setEnabled(state.canStage());
}

void AgeMapView::openMenu(const QPoint& position)
{
    QTreeWidgetItem* item = list_->itemAt(position);
    const auto& scan = app_.session().scan();
    if (!item || !scan)
        return;
    const auto node = scan->node(item->data(0, kPathRole).toByteArray().toStdString());
    if (!node)
        return;
    QMenu menu(this);
    NodeActions::Options options;
    options.title = true;
    NodeActions::addTo(menu, app_, *node, options);
    menu.exec(list_->viewport()->mapToGlobal(position));
}

void AgeMapView::openRow(QTreeWidgetItem* item)
{
    if (item)
        app_.session().select(item->data(0, kPathRole).toByteArray().toStdString());
}

} // namespace tarnbridge::app
