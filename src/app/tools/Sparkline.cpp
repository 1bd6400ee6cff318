#include "app/tools/Sparkline.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace tarnbridge::app {

Sparkline::Sparkline(QWidget* parent) : QWidget(parent)
{
    setMinimumHeight(28);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void Sparkline::setValues(std::vector<double> values, double maximum)
{
    values_ = std::move(values);
    maximum_ = maximum;
    update();
}

void Sparkline::setColor(const QColor& color)
{
    color_ = color;
    update();
}

void Sparkline::setFill(bool fill)
{
    fill_ = fill;
    update();
}

void Sparkline::paintEvent(QPaintEvent*)
{
    if (values_.size() < 2 || width() < 2)
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor colour = color_.isValid() ? color_ : palette().color(QPalette::Highlight);
    const double top = maximum_ > 0 ? maximum_ : 1;
    const QRectF area = QRectF(rect()).adjusted(1, 2, -1, -1);
    const double step = area.width() / double(values_.size() - 1);
    QPainterPath line;
    for (std::size_t i = 0; i < values_.size(); ++i) {
        const double share = std::clamp(values_[i] / top, 0.0, 1.0);
        const QPointF point(area.left() + step * double(i), area.bottom() - share * area.height());
        if (i == 0)
            line.moveTo(point);
        else
            line.lineTo(point);
    }
    if (fill_) {
        QPainterPath shape = line;
        shape.lineTo(area.right(), area.bottom());
        shape.lineTo(area.left(), area.bottom());
        shape.closeSubpath();
        QColor tint = colour;
        tint.setAlphaF(0.18f);
        painter.fillPath(shape, tint);
    }
    painter.setPen(QPen(colour, 1.5));
    painter.drawPath(line);
}

} // namespace tarnbridge::app
