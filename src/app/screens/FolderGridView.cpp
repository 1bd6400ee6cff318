#include "app/screens/FolderGridView.h"

#include <QKeyEvent>
#include <QLabel>
#include <QListView>
#include <QLocale>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "app/itemmodels/FolderGridModel.h"
#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "app/screens/EmptyState.h"
#include "app/shell/ShellTexts.h"
#include "app/views/NodeActions.h"
#include "visual/Paper.h"

namespace tarnbridge::app {

namespace {

constexpr int kMargin = 4;   // between cards
constexpr int kPadding = 12; // inside a card
constexpr int kIcon = 32;

QColor mix(const QColor& a, const QColor& b, double t) {
    return QColor::fromRgbF(float(a.redF() + (b.redF() - a.redF()) * t),
                            float(a.greenF() + (b.greenF() - a.greenF()) * t),
                            float(a.blueF() + (b.blueF() - a.blueF()) * t));
}

QString itemsText(std::int64_t items) {
    return QLocale().toString(qlonglong(items)) +
           (items == 1 ? QStringLiteral(" item") : QStringLiteral(" items"));
}

} // namespace

FolderCardDelegate::FolderCardDelegate(AppModel& app, FolderGridModel& model, QObject* parent)
    : QStyledItemDelegate(parent)
    , app_(app)
    , model_(model) {}

QSize FolderCardDelegate::sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const {
    return kCardSize;
}

QRect FolderCardDelegate::barRect(const QRect& card) {
    const QRect inner = card.adjusted(kMargin + kPadding, 0, -(kMargin + kPadding), 0);
    return QRect(inner.left(), card.bottom() - kMargin - kPadding - 6, inner.width(), 8);
}

void FolderCardDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                               const QModelIndex& index) const {
    const auto card = model_.card(index.row());
    if (!card)
        return;
    const QPalette& palette = option.palette;
    const bool selected = option.state & QStyle::State_Selected;
    const bool hovered = option.state & QStyle::State_MouseOver;
    const QRect frame = option.rect.adjusted(kMargin, kMargin, -kMargin, -kMargin);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    // Tints of the palette's own colours, so that a card stands out in the light and the dark.
    const QColor base = palette.color(QPalette::Base);
    const QColor text = palette.color(QPalette::Text);
    const QColor highlight = palette.color(QPalette::Highlight);
    QColor fill = mix(base, text, hovered ? 0.09 : 0.04);
    if (selected)
        fill = mix(base, highlight, 0.22);
    painter->setBrush(fill);
    painter->setPen(QPen(selected ? highlight : mix(base, text, 0.2), selected ? 2.0 : 1.0));
    painter->drawRoundedRect(QRectF(frame).adjusted(0.5, 0.5, -0.5, -0.5), 8, 8);

    const QRect icon(frame.left() + kPadding, frame.top() + kPadding, kIcon, kIcon);
    index.data(Qt::DecorationRole).value<QIcon>().paint(painter, icon);
    const int textLeft = icon.right() + 10;
    const int textWidth = frame.right() - kPadding - textLeft;
    QFont bold = option.font;
    bold.setBold(true);
    const QFontMetrics boldMetrics(bold);
    painter->setFont(bold);
    painter->setPen(palette.color(QPalette::Text));
    const QRect nameRect(textLeft, icon.top(), textWidth, boldMetrics.height());
    painter->drawText(nameRect, Qt::AlignLeft | Qt::AlignVCenter,
                      boldMetrics.elidedText(card->name, Qt::ElideMiddle, textWidth));
    painter->setFont(option.font);
    const QFontMetrics metrics(option.font);
    const QRect sizeRect(textLeft, nameRect.bottom() + 2, textWidth, metrics.height());
    painter->drawText(sizeRect, Qt::AlignLeft | Qt::AlignVCenter, ShellTexts::bytes(card->bytes));
    painter->setPen(palette.color(QPalette::PlaceholderText));
    const QRect itemsRect(textLeft, sizeRect.bottom() + 2, textWidth, metrics.height());
    painter->drawText(itemsRect, Qt::AlignLeft | Qt::AlignVCenter, itemsText(card->items));

    std::int64_t total = 0;
    for (const auto& [category, bytes] : card->types)
        total += bytes;
    if (total > 0) {
        // Square segments inside a rounded clip: each segment is one exact category colour.
        const QRect bar = barRect(option.rect);
        QPainterPath clip;
        clip.addRoundedRect(QRectF(bar), 3, 3);
        painter->setClipPath(clip);
        painter->setRenderHint(QPainter::Antialiasing, false);
        const bool dark = app_.preferences().dark();
        std::int64_t before = 0;
        for (const auto& [category, bytes] : card->types) {
            const int from = bar.left() + int(double(bar.width()) * double(before) / double(total));
            before += bytes;
            const int to = bar.left() + int(double(bar.width()) * double(before) / double(total));
            if (to > from)
                painter->fillRect(QRect(from, bar.top(), to - from, bar.height()),
                                  Paper::color(FileCategory(category)).resolved(dark));
        }
    }
    painter->restore();
}

FolderGridView::FolderGridView(AppModel& app, QWidget* parent)
    : QWidget(parent)
    , app_(app) {
    setObjectName(QStringLiteral("folderGrid"));
    model_ = new FolderGridModel(app_, this);

    auto* title = new QLabel(QStringLiteral("Folders"));
    title->setObjectName(QStringLiteral("folderGridTitle"));
    QFont font = title->font();
    font.setBold(true);
    title->setFont(font);
    count_ = new QLabel;
    count_->setObjectName(QStringLiteral("folderGridCount"));
    count_->setForegroundRole(QPalette::PlaceholderText);
    auto* header = new QHBoxLayout;
    header->setContentsMargins(12, 8, 12, 4);
    header->setSpacing(8);
    header->addWidget(title);
    header->addWidget(count_);
    header->addStretch(1);

    grid_ = new QListView;
    grid_->setObjectName(QStringLiteral("folderCards"));
    grid_->setAccessibleName(QStringLiteral("Folders"));
    grid_->setModel(model_);
    grid_->setItemDelegate(new FolderCardDelegate(app_, *model_, grid_));
    // A wrapping list of equal cells: laid out without asking each of 100,000 rows its size.
    grid_->setViewMode(QListView::ListMode);
    grid_->setFlow(QListView::LeftToRight);
    grid_->setWrapping(true);
    grid_->setResizeMode(QListView::Adjust);
    grid_->setMovement(QListView::Static);
    grid_->setUniformItemSizes(true);
    grid_->setGridSize(FolderCardDelegate::kCardSize);
    grid_->setSelectionMode(QAbstractItemView::SingleSelection);
    grid_->setMouseTracking(true);
    grid_->viewport()->setAttribute(Qt::WA_Hover); // the hovered card is drawn lighter
    grid_->setDragEnabled(true);
    grid_->setDragDropMode(QAbstractItemView::DragOnly);
    grid_->setFrameShape(QFrame::NoFrame);
    grid_->setContextMenuPolicy(Qt::CustomContextMenu);
    grid_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    grid_->installEventFilter(this);

    none_ = new EmptyState(ShellTexts::icon("folder"), QStringLiteral("Nothing here"),
                           QStringLiteral("This folder is empty or contains no readable items."));
    filtered_ = new EmptyState(ShellTexts::icon("edit-find"), QStringLiteral("No matching items"),
                               QStringLiteral("Clear filters to see the other items."));
    body_ = new QStackedWidget;
    body_->addWidget(grid_);
    body_->addWidget(none_);
    body_->addWidget(filtered_);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(header);
    layout->addWidget(body_, 1);

    connect(model_, &QAbstractItemModel::modelReset, this, &FolderGridView::update);
    connect(&app_.session(), &ScanSession::focusChanged, this, &FolderGridView::showSelection);
    connect(grid_->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex& index) {
                if (const auto node = model_->record(index.row()))
                    app_.session().select(node->path);
            });
    connect(grid_, &QListView::activated, this, [this](const QModelIndex& index) {
        if (const auto node = model_->record(index.row()); node && node->isDirectory)
            app_.session().focusOn(*node);
    });
    connect(grid_, &QListView::customContextMenuRequested, this, &FolderGridView::showMenu);
    update();
}

void FolderGridView::update() {
    const int shown = model_->rowCount();
    count_->setText(QLocale().toString(shown));
    // Children that the filters hide are not an empty folder.
    if (shown > 0)
        body_->setCurrentWidget(grid_);
    else
        body_->setCurrentWidget(model_->childCount() > 0 ? filtered_ : none_);
    showSelection();
}

// A selection made elsewhere (a chart, the table) shows on its card too.
void FolderGridView::showSelection() {
    const auto& selection = app_.session().selection();
    const int row = selection ? model_->rowOf(*selection) : -1;
    if (row < 0 || grid_->currentIndex().row() == row)
        return;
    const QModelIndex index = model_->index(row);
    grid_->selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
    grid_->scrollTo(index);
}

void FolderGridView::showMenu(const QPoint& at) {
    const auto node = model_->record(grid_->indexAt(at).row());
    if (!node)
        return;
    auto* menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("folderCardMenu"));
    menu->setAttribute(Qt::WA_DeleteOnClose);
    NodeActions::Options options;
    options.openLabel = QStringLiteral("Open folder");
    NodeActions::addTo(*menu, app_, *node, options);
    menu->popup(grid_->viewport()->mapToGlobal(at));
}

bool FolderGridView::eventFilter(QObject* watched, QEvent* event) {
    if (watched != grid_ || event->type() != QEvent::KeyPress)
        return QWidget::eventFilter(watched, event);
    const auto* key = static_cast<QKeyEvent*>(event);
    const bool up = key->key() == Qt::Key_Backspace ||
                    (key->key() == Qt::Key_Up && key->modifiers() == Qt::AltModifier);
    if (up) {
        app_.session().goUp();
        return true;
    }
    const bool menu = key->key() == Qt::Key_Menu ||
                      (key->key() == Qt::Key_F10 && key->modifiers() == Qt::ShiftModifier);
    if (menu) {
        const QModelIndex current = grid_->currentIndex();
        if (current.isValid())
            showMenu(grid_->visualRect(current).center());
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace tarnbridge::app
