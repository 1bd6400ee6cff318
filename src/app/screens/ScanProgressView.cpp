#include "app/screens/ScanProgressView.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/screens/EmptyState.h"
#include "app/shell/ShellTexts.h"
#include "app/views/GraphView.h"

namespace tarnbridge::app {
namespace {

// The views drawn as a chart; the others have no live form.
bool isGraph(StorageView view) {
    return view == StorageView::treemap || view == StorageView::sunburst ||
           view == StorageView::flame || view == StorageView::bubbles ||
           view == StorageView::mindMap;
}

} // namespace

ScanProgressView::ScanProgressView(AppModel& app, QWidget* parent)
    : QWidget(parent)
    , app_(app) {
    setObjectName(QStringLiteral("scanProgress"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(8);
    auto* top = new QHBoxLayout;
    heading_ = new QLabel;
    heading_->setObjectName(QStringLiteral("scanHeading"));
    QFont font = heading_->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 1.3);
    heading_->setFont(font);
    top->addWidget(heading_, 1);
    auto* cancel = new QPushButton(QStringLiteral("Cancel scan"));
    cancel->setObjectName(QStringLiteral("cancelScan"));
    connect(cancel, &QPushButton::clicked, this, [this] { app_.session().cancelScan(); });
    top->addWidget(cancel);
    layout->addLayout(top);
    counts_ = new QWidget;
    counts_->setObjectName(QStringLiteral("scanCounts"));
    auto* counts = new QHBoxLayout(counts_);
    counts->setContentsMargins(0, 0, 0, 0);
    counts->setSpacing(16);
    files_ = new QLabel;
    folders_ = new QLabel;
    bytes_ = new QLabel;
    for (QLabel* label : {files_, folders_, bytes_})
        counts->addWidget(label);
    counts->addStretch(1);
    layout->addWidget(counts_);
    path_ = new QLabel;
    path_->setObjectName(QStringLiteral("scanPath"));
    path_->setForegroundRole(QPalette::PlaceholderText);
    path_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    path_->setMinimumWidth(1);
    layout->addWidget(path_);
    folder_ = new QLabel;
    folder_->setObjectName(QStringLiteral("liveFolder"));
    layout->addWidget(folder_);

    chart_ = new QWidget;
    auto* chartLayout = new QVBoxLayout(chart_);
    chartLayout->setContentsMargins(0, 0, 0, 0);
    chartCaption_ = new QLabel;
    chartCaption_->setObjectName(QStringLiteral("liveCaption"));
    chartCaption_->setForegroundRole(QPalette::PlaceholderText);
    chartLayout->addWidget(chartCaption_);
    chartLayout->addWidget(new GraphView(app_, chart_), 1);

    body_ = new QStackedWidget;
    list_ = new QTreeWidget;
    list_->setObjectName(QStringLiteral("liveList"));
    list_->setAccessibleName(QStringLiteral("Items found so far"));
    list_->setUniformRowHeights(true);
    list_->setRootIsDecorated(false);
    list_->setColumnCount(2);
    list_->setHeaderLabels({QStringLiteral("Name"), QStringLiteral("Size")});
    list_->header()->setStretchLastSection(false);
    list_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    list_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    connect(list_, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem* item) {
        const int row = list_->indexOfTopLevelItem(item);
        if (row < 0 || std::size_t(row) >= rowPaths_.size())
            return;
        DiskNode node;
        node.path = rowPaths_[std::size_t(row)];
        node.isDirectory = item->data(0, Qt::UserRole).toBool();
        if (node.isDirectory)
            app_.session().focusOn(node);
    });
    empty_ = new EmptyState(ShellTexts::icon("folder"), QString(), QString());
    body_->addWidget(list_);
    body_->addWidget(empty_);
    auto* split = new QSplitter(Qt::Vertical);
    split->addWidget(chart_);
    split->addWidget(body_);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);
    split->setChildrenCollapsible(false);
    layout->addWidget(split, 1);

    connect(&app_.session(), &ScanSession::progressChanged, this, &ScanProgressView::showProgress);
    connect(&app_.session(), &ScanSession::focusChanged, this, &ScanProgressView::showProgress);
    connect(&app_.explore(), &ExploreState::filtersChanged, this, &ScanProgressView::showProgress);
    connect(&app_.explore(), &ExploreState::displayChanged, this, &ScanProgressView::showProgress);
    showProgress();
}

void ScanProgressView::showProgress() {
    const auto& session = app_.session();
    heading_->setText(QStringLiteral("Scanning ") + session.scanRootName());
    const auto& progress = session.scanProgress();
    counts_->setVisible(bool(progress));
    chart_->setVisible(bool(progress) && isGraph(app_.explore().storageView()));
    if (!progress) {
        path_->setText(QStringLiteral("Discovering folders…"));
        folder_->clear();
        empty_->setTexts(QStringLiteral("Discovering folders…"),
                         QStringLiteral("Folders will appear here as the scan begins."));
        body_->setCurrentWidget(empty_);
        return;
    }
    files_->setText(ShellTexts::number(progress->files) + QStringLiteral(" files"));
    folders_->setText(ShellTexts::number(progress->folders) + QStringLiteral(" folders"));
    bytes_->setText(ShellTexts::bytes(progress->bytes));
    path_->setText(path_->fontMetrics().elidedText(displayText(progress->path),
                                                   Qt::ElideMiddle, std::max(200, path_->width())));
    QStringList crumbs;
    for (const DiskNode& node : session.navigationBreadcrumbs())
        crumbs << session.displayName(node);
    folder_->setText(crumbs.join(QStringLiteral("  ›  ")));

    const auto& browsing = progress->browsing;
    chart_->setVisible(isGraph(app_.explore().storageView()));
    chartCaption_->setText(browsing && browsing->chartIsLimited
                               ? QStringLiteral("Live — largest branches shown")
                               : QStringLiteral("Live — totals update as files are found"));
    const auto& live = session.liveFocusPath();
    const bool arrived = !live || (browsing && browsing->folder.path == *live);
    const bool atRoot = !browsing || browsing->folder.path == browsing->rootPath;
    showList(browsing && !atRoot ? browsing->children : progress->preview, arrived);
}

void ScanProgressView::showList(const std::vector<DiskNode>& children, bool requestedArrived) {
    const auto& explore = app_.explore();
    if (!requestedArrived) {
        empty_->setTexts(QStringLiteral("Opening folder…"), QString());
        body_->setCurrentWidget(empty_);
        return;
    }
    std::vector<const DiskNode*> rows;
    for (const DiskNode& node : children)
        if (explore.matches(node))
            rows.push_back(&node);
    if (rows.empty()) {
        if (!explore.activeFilters().empty())
            empty_->setTexts(QStringLiteral("No matching items"),
                             QStringLiteral("Clear filters to see the other items."));
        else
            empty_->setTexts(QStringLiteral("No items discovered here yet"),
                             QStringLiteral("Scanning — items will appear here as they’re found."));
        body_->setCurrentWidget(empty_);
        return;
    }
    const SizeMeasure measure = explore.measure();
    const auto size = [measure](const DiskNode* n) {
        return measure == SizeMeasure::logical ? n->logicalSize : n->allocatedSize;
    };
    std::stable_sort(rows.begin(), rows.end(), [&](const DiskNode* a, const DiskNode* b) {
        return size(a) != size(b) ? size(a) > size(b) : a->name() < b->name();
    });
    if (rows.size() > std::size_t(kRowLimit))
        rows.resize(std::size_t(kRowLimit));
    const QIcon folderIcon = ShellTexts::icon("folder"),
                fileIcon = ShellTexts::icon("text-x-generic");
    list_->setUpdatesEnabled(false);
    list_->clear();
    rowPaths_.clear();
    for (const DiskNode* node : rows) {
        auto* item = new QTreeWidgetItem(
            {QString::fromUtf8(node->name().data(), qsizetype(node->name().size())),
             ShellTexts::bytes(size(node))});
        item->setIcon(0, node->isDirectory ? folderIcon : fileIcon);
        item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
        item->setData(0, Qt::UserRole, node->isDirectory);
        list_->addTopLevelItem(item);
        rowPaths_.push_back(node->path);
    }
    list_->setUpdatesEnabled(true);
    body_->setCurrentWidget(list_);
}

} // namespace tarnbridge::app
