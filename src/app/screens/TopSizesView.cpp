#include "app/screens/TopSizesView.h"

#include <QComboBox>
#include <QGraphicsOpacityEffect>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMenu>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QStyledItemDelegate>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <set>

#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/model/TopSizesState.h"
#include "app/screens/EmptyState.h"
#include "app/shell/ShellTexts.h"
#include "app/views/NodeActions.h"

namespace tarnbridge::app {

namespace {

enum Column { rankColumn, nameColumn, kindColumn, sizeColumn, shareColumn, columnCount };
constexpr int kBarRole = Qt::UserRole + 2; // size / biggest, 0…1

// The size cell with a bar behind the figure, in proportion to the biggest row.
class BarDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        const double fraction = index.data(kBarRole).toDouble();
        if (fraction > 0) {
            QRectF bar = QRectF(option.rect).adjusted(4, option.rect.height() * 0.3, -4, -option.rect.height() * 0.3);
            bar.setWidth(std::max(2.0, bar.width() * std::min(fraction, 1.0)));
            QColor colour = option.palette.color(QPalette::Highlight);
            colour.setAlphaF(0.28f);
            painter->fillRect(bar, colour);
        }
        QStyledItemDelegate::paint(painter, option, index);
    }
};

} // namespace

TopSizesView::TopSizesView(AppModel& app, QWidget* parent) : QWidget(parent), app_(app)
{
    setObjectName(QStringLiteral("topSizes"));
    scope_ = new QComboBox;
    scope_->setObjectName(QStringLiteral("topSizesScope"));
    for (RankingScope scope : {RankingScope::current, RankingScope::files, RankingScope::folders})
        scope_->addItem(QString::fromUtf8(rawValue(scope)), int(scope));
    count_ = new QLabel;
    count_->setObjectName(QStringLiteral("topSizesCount"));
    busy_ = new QProgressBar;
    busy_->setRange(0, 0);
    busy_->setMaximumWidth(80);
    busy_->setTextVisible(false);

    auto* bar = new QHBoxLayout;
    bar->setContentsMargins(12, 8, 12, 4);
    auto* title = new QLabel(QStringLiteral("Top Sizes"));
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    bar->addWidget(title);
    bar->addWidget(scope_);
    bar->addStretch(1);
    bar->addWidget(busy_);
    bar->addWidget(count_);

    list_ = new QTreeWidget;
    list_->setObjectName(QStringLiteral("topSizesList"));
    list_->setColumnCount(columnCount);
    list_->setRootIsDecorated(false);
    list_->setAlternatingRowColors(true);
    list_->setContextMenuPolicy(Qt::CustomContextMenu);
    list_->setItemDelegateForColumn(sizeColumn, new BarDelegate(list_));
    list_->header()->setStretchLastSection(false);
    list_->header()->setSectionResizeMode(nameColumn, QHeaderView::Stretch);
    dim_ = new QGraphicsOpacityEffect(list_);
    dim_->setOpacity(0.45);
    dim_->setEnabled(false);
    list_->setGraphicsEffect(dim_);
    empty_ = new EmptyState(ShellTexts::icon("edit-find"), QStringLiteral("No matching items"), QString());
    body_ = new QStackedWidget;
    body_->addWidget(list_);
    body_->addWidget(empty_);
    more_ = new QPushButton(QStringLiteral("Show 200 more"));
    more_->setObjectName(QStringLiteral("topSizesMore"));

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(bar);
    layout->addWidget(body_, 1);
    layout->addWidget(more_, 0, Qt::AlignHCenter);

    TopSizesState& state = app_.topSizes();
    connect(scope_, &QComboBox::activated, this,
            [this, &state](int at) { state.setScope(RankingScope(scope_->itemData(at).toInt())); });
    connect(more_, &QPushButton::clicked, &state, &TopSizesState::showMore);
    connect(&state, &TopSizesState::changed, this, &TopSizesView::update);
    connect(&app_.cleanup(), &CleanupFlow::changed, this, &TopSizesView::update);
    connect(list_, &QTreeWidget::itemClicked, this, [this](QTreeWidgetItem* item) {
        app_.session().select(item->data(nameColumn, kPathRole).toByteArray().toStdString());
    });
    connect(list_, &QTreeWidget::itemActivated, this, &TopSizesView::open);
    connect(list_, &QTreeWidget::customContextMenuRequested, this, &TopSizesView::showMenu);
    update();
}

void TopSizesView::update()
{
    const TopSizesState& state = app_.topSizes();
    scope_->setCurrentIndex(scope_->findData(int(state.scope())));
    const bool current = state.scope() == RankingScope::current;
    list_->setHeaderLabels({QStringLiteral("#"), QStringLiteral("Name"), QStringLiteral("Files / type"),
                            QStringLiteral("Size"), current ? QStringLiteral("% of folder") : QStringLiteral("% of scan")});
    busy_->setVisible(state.isPending());
    dim_->setEnabled(state.isPending());
    more_->setVisible(state.hasMore());
    const RankedPage* page = state.page();
    count_->setText(page ? QLocale().toString(qlonglong(page->count)) + QStringLiteral(" items") : QString());

    list_->clear();
    const bool empty = page && !state.isPending() && page->rows.empty();
    body_->setCurrentWidget(empty ? static_cast<QWidget*>(empty_) : list_);
    const auto& scan = app_.session().scan();
    if (!page || !scan)
        return;
    std::set<std::string> staged;
    for (const CleanupEntry& entry : app_.cleanup().queue())
        staged.insert(entry.node.path);
    const SizeMeasure measure = app_.explore().measure();
    const double biggest = page->rows.empty() ? 1.0 : std::max(double(page->rows.front().bytes(measure)), 1.0);
    const double base = double(state.shareBase());
    QList<QTreeWidgetItem*> items;
    int position = 0;
    for (const DiskNode& node : page->rows) {
        auto* item = new QTreeWidgetItem;
        item->setText(rankColumn, QString::number(++position));
        item->setTextAlignment(rankColumn, Qt::AlignRight | Qt::AlignVCenter);
        QString where = displayText(node.path);
        if (staged.count(node.path))
            where += QStringLiteral(" · Selected in Explore");
        item->setText(nameColumn, displayText(node.name()) + QLatin1Char('\n') + where);
        item->setIcon(nameColumn, ShellTexts::icon(node.isDirectory ? "folder" : "text-x-generic"));
        item->setData(nameColumn, kPathRole, QByteArray::fromStdString(node.path));
        item->setToolTip(nameColumn, displayText(node.path));
        item->setText(kindColumn, node.isDirectory ? ShellTexts::number(node.fileCount) + QStringLiteral(" files")
                                             : ShellTexts::kindName(*scan, node));
        item->setText(sizeColumn, ShellTexts::bytes(node.bytes(measure)));
        item->setTextAlignment(sizeColumn, Qt::AlignRight | Qt::AlignVCenter);
        item->setData(sizeColumn, kBarRole, double(node.bytes(measure)) / biggest);
        if (base > 0)
            item->setText(shareColumn, QString::asprintf("%.1f%%", 100.0 * double(node.bytes(measure)) / base));
        item->setTextAlignment(shareColumn, Qt::AlignRight | Qt::AlignVCenter);
        items << item;
    }
    list_->addTopLevelItems(items);
    list_->resizeColumnToContents(rankColumn);
}

void TopSizesView::open(QTreeWidgetItem* item)
{
    const auto& scan = app_.session().scan();
    if (!item || !scan)
        return;
    const auto node = scan->node(item->data(nameColumn, kPathRole).toByteArray().toStdString());
    if (node && node->isDirectory)
        app_.session().focusOn(*node);
}

void TopSizesView::showMenu(const QPoint& at)
{
    const auto& scan = app_.session().scan();
    QTreeWidgetItem* item = list_->itemAt(at);
    if (!item || !scan)
        return;
    const auto node = scan->node(item->data(nameColumn, kPathRole).toByteArray().toStdString());
    if (!node)
        return;
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    NodeActions::addTo(*menu, app_, *node);
    menu->popup(list_->viewport()->mapToGlobal(at));
}

} // namespace tarnbridge::app
