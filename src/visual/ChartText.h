#pragma once

#include <QFont>
#include <QString>

namespace tarnbridge::ChartText {

// The application font at a pixel size, semibold for titles.
QFont font(double size, bool semibold);

// `text` as it stands when it fits `width` at `fontSize` (semibold); otherwise its middle cut
// out for "…", keeping both ends (the start takes the odd character); empty when not even "…"
// fits. Characters are grapheme clusters, so accents and emoji are never split.
QString fit(const QString& text, double width, double fontSize);

} // namespace tarnbridge::ChartText
