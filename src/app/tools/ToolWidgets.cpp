#include "app/tools/ToolWidgets.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QTreeWidget>
#include <QLabel>
#include <QLayoutItem>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

#include "app/tools/Sparkline.h"
#include "model/Formatting.h"

namespace tarnbridge::app {

namespace ToolWidgets {

QString bytes(std::int64_t value)
{
    return QString::fromStdString(formattedBytes(value));
}

QString number(std::int64_t value)
{
    return QLocale().toString(qlonglong(value));
}

QString counted(std::int64_t count, const char* one, const char* many)
{
    return number(count) + QLatin1String(count == 1 ? one : many);
}

QLabel* heading(const QString& text, double scale, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setBold(true);
    if (scale != 1.0)
        font.setPointSizeF(font.pointSizeF() * scale);
    label->setFont(font);
    return label;
}

QLabel* note(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

QWidget* titleBlock(const QString& title, const QString& subtitle)
{
    auto* block = new QWidget;
    auto* layout = new QVBoxLayout(block);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(heading(title, 1.5));
    layout->addWidget(note(subtitle));
    return block;
}

QVBoxLayout* scrolledPage(QWidget* screen, QScrollArea** area)
{
    auto* outer = new QVBoxLayout(screen);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(24, 16, 24, 16);
    layout->setSpacing(12);
    scroll->setWidget(page);
    outer->addWidget(scroll);
    if (area)
        *area = scroll;
    return layout;
}

void clearLayout(QVBoxLayout* layout, int from)
{
    while (layout->count() > from) {
        QLayoutItem* item = layout->takeAt(from);
        if (QWidget* widget = item->widget())
            delete widget;
        else if (QLayout* inner = item->layout())
            delete inner;
        delete item;
    }
}

QTreeWidget* list(const QStringList& heads, const QString& accessibleName)
{
    auto* tree = new QTreeWidget;
    tree->setAccessibleName(accessibleName);
    tree->setRootIsDecorated(false);
    tree->setUniformRowHeights(true);
    tree->setHeaderLabels(heads);
    tree->setSelectionMode(QAbstractItemView::SingleSelection);
    tree->header()->setStretchLastSection(false);
    tree->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    tree->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    return tree;
}

void fitHeight(QTreeWidget* tree, int maxRows)
{
    const int rows = std::clamp(tree->topLevelItemCount(), 1, maxRows);
    int rowHeight = tree->sizeHintForRow(0);
    if (rowHeight <= 0)
        rowHeight = tree->fontMetrics().height() + 8;
    const int height = tree->header()->sizeHint().height() + rows * rowHeight + 2 * tree->frameWidth() + 4;
    tree->setFixedHeight(height);
}

QPushButton* rowButton(QTreeWidget* tree, QTreeWidgetItem* item, int column, const QString& text,
                       const QString& accessibleName)
{
    auto* button = new QPushButton(text);
    button->setAccessibleName(accessibleName);
    button->setFlat(true);
    button->setCursor(Qt::PointingHandCursor);
    tree->setItemWidget(item, column, button);
    return button;
}

} // namespace ToolWidgets

ProgressCard::ProgressCard(QWidget* parent) : QFrame(parent)
{
    setObjectName(QStringLiteral("progressCard"));
    setFrameShape(QFrame::StyledPanel);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 12, 16, 12);
    layout->setSpacing(6);
    auto* top = new QHBoxLayout;
    title_ = ToolWidgets::heading({}, 1.1);
    title_->setObjectName(QStringLiteral("progressTitle"));
    top->addWidget(title_, 1);
    cancel_ = new QPushButton(QStringLiteral("Cancel"));
    cancel_->setObjectName(QStringLiteral("progressCancel"));
    connect(cancel_, &QPushButton::clicked, this, &ProgressCard::cancelled);
    top->addWidget(cancel_);
    layout->addLayout(top);
    detail_ = new QLabel;
    detail_->setObjectName(QStringLiteral("progressDetail"));
    detail_->setMinimumWidth(1);
    layout->addWidget(detail_);
    path_ = ToolWidgets::note({});
    path_->setWordWrap(false);
    path_->setMinimumWidth(1);
    layout->addWidget(path_);
    bar_ = new QProgressBar;
    bar_->setTextVisible(false);
    bar_->setMaximumHeight(8);
    layout->addWidget(bar_);
    factsRow_ = new QHBoxLayout;
    factsRow_->setSpacing(24);
    layout->addLayout(factsRow_);
    setFraction(std::nullopt);
}

void ProgressCard::setTexts(const QString& title, const QString& detail, const QString& path)
{
    title_->setText(title);
    detail_->setText(detail);
    detail_->setVisible(!detail.isEmpty());
    path_->setText(path);
    path_->setVisible(!path.isEmpty());
}

void ProgressCard::setFraction(std::optional<double> fraction)
{
    fraction_ = fraction;
    if (fraction) {
        bar_->setRange(0, 1000);
        bar_->setValue(int(std::lround(std::clamp(*fraction, 0.0, 1.0) * 1000)));
    } else {
        bar_->setRange(0, 0);
    }
}

void ProgressCard::setFacts(const std::vector<std::pair<QString, QString>>& facts)
{
    if (facts == facts_)
        return;
    facts_ = facts;
    while (QLayoutItem* item = factsRow_->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    for (const auto& [name, value] : facts) {
        auto* fact = new QWidget;
        auto* column = new QVBoxLayout(fact);
        column->setContentsMargins(0, 0, 0, 0);
        column->setSpacing(0);
        column->addWidget(ToolWidgets::note(name));
        column->addWidget(ToolWidgets::heading(value));
        factsRow_->addWidget(fact);
        fact->show();
    }
    factsRow_->addStretch(1);
}

QString ProgressCard::title() const
{
    return title_->text();
}

QString ProgressCard::detail() const
{
    return detail_->text();
}

Tile::Tile(const QString& title, QWidget* parent) : QFrame(parent)
{
    setFrameShape(QFrame::StyledPanel);
    setAccessibleName(title);
    body_ = new QVBoxLayout(this);
    body_->setContentsMargins(12, 10, 12, 10);
    body_->setSpacing(4);
    auto* name = ToolWidgets::note(title);
    name->setWordWrap(false);
    body_->addWidget(name);
    figure_ = ToolWidgets::heading({}, 1.6);
    figure_->setObjectName(QStringLiteral("tileFigure"));
    body_->addWidget(figure_);
    caption_ = ToolWidgets::note({});
    caption_->setObjectName(QStringLiteral("tileCaption"));
    body_->addWidget(caption_);
}

void Tile::setFigure(const QString& figure, const QString& caption)
{
    figure_->setText(figure);
    figure_->setVisible(!figure.isEmpty());
    caption_->setText(caption);
    caption_->setVisible(!caption.isEmpty());
}

QString Tile::figure() const
{
    return figure_->text();
}

QString Tile::caption() const
{
    return caption_->text();
}

Sparkline* Tile::sparkline()
{
    if (!sparkline_) {
        sparkline_ = new Sparkline;
        body_->insertWidget(2, sparkline_);
    }
    return sparkline_;
}

} // namespace tarnbridge::app
