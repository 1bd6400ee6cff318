#pragma once

#include <QColor>
#include <QWidget>

#include <vector>

namespace tarnbridge::app {

// A small line chart of recent values: spread evenly across the width, scaled against
// `maximum`, optionally filled below with a faint tint. Fewer than two values draw nothing.
class Sparkline : public QWidget {
    Q_OBJECT
public:
    explicit Sparkline(QWidget* parent = nullptr);

    void setValues(std::vector<double> values, double maximum);
    void setColor(const QColor& color);
    void setFill(bool fill);

    const std::vector<double>& values() const { return values_; }
    double maximum() const { return maximum_; }
    QSize sizeHint() const override { return QSize(160, 36); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::vector<double> values_;
    double maximum_ = 1;
    QColor color_;
    bool fill_ = true;
};

} // namespace tarnbridge::app
