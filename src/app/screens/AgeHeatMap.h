#pragma once

#include <QColor>
#include <QWidget>

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "query/AgeSummary.h"

namespace tarnbridge::app {

// The age map's colours: six for the age classes, in their order, and seven heat levels.
namespace AgeColors {
QColor range(AgeRange range);
QColor heat(int level, bool dark);
// "March 2024" in the user's language.
QString monthName(ModificationMonth month);
} // namespace AgeColors

// Bytes by month as a grid: one row per year that has files, twelve columns in calendar
// order. A click, or Enter on the keyboard cursor, chooses a month.
class AgeHeatMap : public QWidget {
    Q_OBJECT
public:
    explicit AgeHeatMap(QWidget* parent = nullptr);

    void setMonths(std::map<ModificationMonth, std::int64_t> months, std::optional<ModificationMonth> selected,
                   bool dark);
    const std::map<ModificationMonth, std::int64_t>& months() const { return months_; }
    // The level a month is painted at.
    int levelOf(ModificationMonth month) const;
    // Where a month's cell is, or an empty rectangle for a year without a row.
    QRect cellRect(ModificationMonth month) const;
    std::optional<ModificationMonth> monthAt(QPoint point) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

    static constexpr int kCell = 18;
    static constexpr int kGap = 3;

Q_SIGNALS:
    void monthClicked(ModificationMonth month);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool event(QEvent* event) override;

private:
    int rowOf(int year) const;
    int labelWidth() const;
    void moveCursor(int rows, int columns);

    std::map<ModificationMonth, std::int64_t> months_;
    std::vector<int> years_; // the rows, ascending
    std::int64_t maximum_ = 0;
    std::optional<ModificationMonth> selected_;
    std::optional<ModificationMonth> cursor_;
    bool dark_ = false;
};

} // namespace tarnbridge::app
