#include "visual/ChartText.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QTextBoundaryFinder>

#include <vector>

namespace tarnbridge::ChartText {

QFont font(double size, bool semibold)
{
    QFont f = QGuiApplication::font();
    // Pixel sizes, so a picture, an SVG and the screen measure text alike.
    f.setPixelSize(std::max(1, int(size + 0.5)));
    f.setWeight(semibold ? QFont::DemiBold : QFont::Normal);
    return f;
}

QString fit(const QString& text, double width, double fontSize)
{
    const QFontMetricsF metrics(font(fontSize, true));
    if (metrics.horizontalAdvance(text) <= width)
        return text;
    const QString ellipsis = QStringLiteral("…");
    if (metrics.horizontalAdvance(ellipsis) > width)
        return {};
    std::vector<qsizetype> bounds{0}; // start of each grapheme cluster, then the end
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    while (finder.toNextBoundary() > 0)
        bounds.push_back(finder.position());
    if (bounds.back() != text.size())
        bounds.push_back(text.size());
    const qsizetype count = qsizetype(bounds.size()) - 1;
    auto shortened = [&](qsizetype n) {
        const qsizetype head = (n + 1) / 2, tail = n / 2;
        return text.left(bounds[std::size_t(head)]) + ellipsis + text.mid(bounds[std::size_t(count - tail)]);
    };
    qsizetype low = 0, high = count;
    while (low < high) {
        const qsizetype mid = (low + high + 1) / 2;
        if (metrics.horizontalAdvance(shortened(mid)) <= width)
            low = mid;
        else
            high = mid - 1;
    }
    return shortened(low);
}

} // namespace tarnbridge::ChartText
