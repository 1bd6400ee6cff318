#include "app/screens/AgeHeatMap.h"

#include <QKeyEvent>
#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>

#include <algorithm>
#include <array>
#include <set>

#include "app/model/AgeMapState.h"
#include "app/shell/ShellTexts.h"

namespace tarnbridge::app {

namespace AgeColors {

QColor range(AgeRange range)
{
    // Fresh to old: green through ochre to a dark rust, readable on light and dark paper.
    static const std::array<QColor, 6> colors{QColor(0x4e, 0x9a, 0x6b), QColor(0x86, 0xa8, 0x4f),
                                              QColor(0xc9, 0xa8, 0x3e), QColor(0xd5, 0x86, 0x3c),
                                              QColor(0xb8, 0x5c, 0x38), QColor(0x8a, 0x45, 0x36)};
    return colors[std::size_t(range)];
}

QColor heat(int level, bool dark)
{
    struct Rgb {
        double r, g, b;
    };
    static constexpr std::array<Rgb, 7> light{{{0.94, 0.93, 0.90},
                                               {0.85, 0.82, 0.75},
                                               {0.75, 0.68, 0.55},
                                               {0.63, 0.52, 0.36},
                                               {0.51, 0.39, 0.24},
                                               {0.40, 0.28, 0.15},
                                               {0.29, 0.18, 0.08}}};
    static constexpr std::array<Rgb, 7> night{{{1.00, 1.00, 1.00},
                                               {0.27, 0.24, 0.19},
                                               {0.40, 0.32, 0.22},
                                               {0.53, 0.40, 0.24},
                                               {0.69, 0.51, 0.29},
                                               {0.84, 0.66, 0.41},
                                               {0.98, 0.82, 0.55}}};
    level = std::clamp(level, 0, 6);
    const Rgb c = (dark ? night : light)[std::size_t(level)];
    return QColor::fromRgbF(float(c.r), float(c.g), float(c.b), dark && level == 0 ? 0.15f : 1.0f);
}

QString monthName(ModificationMonth month)
{
    return QLocale().standaloneMonthName(month.month, QLocale::LongFormat) + u' ' + QString::number(month.year);
}

} // namespace AgeColors

AgeHeatMap::AgeHeatMap(QWidget* parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("ageHeatMap"));
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setAccessibleName(QStringLiteral("Bytes by last-modified month"));
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void AgeHeatMap::setMonths(std::map<ModificationMonth, std::int64_t> months,
                           std::optional<ModificationMonth> selected, bool dark)
{
    months_ = std::move(months);
    selected_ = selected;
    dark_ = dark;
    std::set<int> years;
    maximum_ = 0;
    for (const auto& [month, bytes] : months_) {
        years.insert(month.year);
        maximum_ = std::max(maximum_, bytes);
    }
    years_.assign(years.begin(), years.end());
    if (cursor_ && rowOf(cursor_->year) < 0)
        cursor_.reset();
    updateGeometry();
    update();
}

int AgeHeatMap::levelOf(ModificationMonth month) const
{
    const auto found = months_.find(month);
    return heatLevel(found == months_.end() ? 0 : found->second, maximum_);
}

int AgeHeatMap::rowOf(int year) const
{
    const auto found = std::lower_bound(years_.begin(), years_.end(), year);
    return found != years_.end() && *found == year ? int(found - years_.begin()) : -1;
}

int AgeHeatMap::labelWidth() const
{
    return fontMetrics().horizontalAdvance(QStringLiteral("0000")) + 8;
}

QRect AgeHeatMap::cellRect(ModificationMonth month) const
{
    const int row = rowOf(month.year);
    if (row < 0 || month.month < 1 || month.month > 12)
        return {};
    const int top = fontMetrics().height() + 4;
    return {labelWidth() + (month.month - 1) * (kCell + kGap), top + row * (kCell + kGap), kCell, kCell};
}

std::optional<ModificationMonth> AgeHeatMap::monthAt(QPoint point) const
{
    for (int year : years_)
        for (int month = 1; month <= 12; ++month)
            if (cellRect({year, month}).contains(point))
                return ModificationMonth{year, month};
    return std::nullopt;
}

QSize AgeHeatMap::sizeHint() const
{
    const int rows = std::max<int>(int(years_.size()), 1);
    return {labelWidth() + 12 * (kCell + kGap), fontMetrics().height() + 4 + rows * (kCell + kGap)};
}

void AgeHeatMap::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor text = palette().color(QPalette::PlaceholderText);
    painter.setPen(text);
    const QLocale locale;
    for (int month = 1; month <= 12; ++month) {
        const QRect column(labelWidth() + (month - 1) * (kCell + kGap), 0, kCell, fontMetrics().height());
        painter.drawText(column, Qt::AlignCenter, locale.standaloneMonthName(month, QLocale::NarrowFormat));
    }
    for (int year : years_) {
        const QRect first = cellRect({year, 1});
        painter.setPen(text);
        painter.drawText(QRect(0, first.top(), labelWidth() - 6, kCell), Qt::AlignRight | Qt::AlignVCenter,
                         QString::number(year));
        for (int month = 1; month <= 12; ++month) {
            const ModificationMonth here{year, month};
            const QRectF cell = QRectF(cellRect(here)).adjusted(0.5, 0.5, -0.5, -0.5);
            painter.setPen(Qt::NoPen);
            painter.setBrush(AgeColors::heat(levelOf(here), dark_));
            painter.drawRoundedRect(cell, 3, 3);
            if (selected_ == here) {
                painter.setBrush(Qt::NoBrush);
                painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
                painter.drawRoundedRect(cell.adjusted(-1, -1, 1, 1), 4, 4);
            }
            if (hasFocus() && cursor_ == here) {
                painter.setBrush(Qt::NoBrush);
                painter.setPen(QPen(palette().color(QPalette::Text), 1, Qt::DotLine));
                painter.drawRoundedRect(cell.adjusted(-2, -2, 2, 2), 4, 4);
            }
        }
    }
}

void AgeHeatMap::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton)
        return QWidget::mousePressEvent(event);
    if (const auto month = monthAt(event->position().toPoint())) {
        cursor_ = month;
        update();
        Q_EMIT monthClicked(*month);
    }
}

void AgeHeatMap::moveCursor(int rows, int columns)
{
    if (years_.empty())
        return;
    if (!cursor_) {
        // Start on the busiest month: the one most worth a look.
        cursor_ = months_.begin()->first;
        for (const auto& [month, bytes] : months_)
            if (bytes == maximum_)
                cursor_ = month;
        update();
        return;
    }
    const int row = std::clamp(rowOf(cursor_->year) + rows, 0, int(years_.size()) - 1);
    const int month = std::clamp(cursor_->month + columns, 1, 12);
    cursor_ = ModificationMonth{years_[std::size_t(row)], month};
    update();
}

void AgeHeatMap::keyPressEvent(QKeyEvent* event)
{
    switch (event->key()) {
    case Qt::Key_Left: moveCursor(0, -1); break;
    case Qt::Key_Right: moveCursor(0, 1); break;
    case Qt::Key_Up: moveCursor(-1, 0); break;
    case Qt::Key_Down: moveCursor(1, 0); break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Space:
        if (cursor_)
            Q_EMIT monthClicked(*cursor_);
        break;
    default: QWidget::keyPressEvent(event); return;
    }
}

bool AgeHeatMap::event(QEvent* event)
{
    if (event->type() == QEvent::ToolTip) {
        const auto* help = static_cast<QHelpEvent*>(event);
        if (const auto month = monthAt(help->pos())) {
            const auto found = months_.find(*month);
            QToolTip::showText(help->globalPos(), AgeColors::monthName(*month) + QStringLiteral(" — ") +
                                                      ShellTexts::bytes(found == months_.end() ? 0 : found->second),
                               this, cellRect(*month));
        } else {
            QToolTip::hideText();
        }
        return true;
    }
    if (event->type() == QEvent::FocusIn || event->type() == QEvent::FocusOut)
        update();
    return QWidget::event(event);
}

} // namespace tarnbridge::app
