#include "app/shell/Appearance.h"

#include <QApplication>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace tarnbridge::app::Appearance {
namespace {

QPalette darkPalette() {
    const QColor window(0x2b, 0x2d, 0x30), base(0x1f, 0x21, 0x23), text(0xe8, 0xe6, 0xe3);
    const QColor accent(0x4f, 0x9d, 0xa6), disabled(0x7d, 0x7f, 0x82);
    QPalette p;
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window.lighter(110));
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, disabled);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, window.lighter(115));
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::Light, window.lighter(150));
    p.setColor(QPalette::Midlight, window.lighter(125));
    p.setColor(QPalette::Mid, window.darker(120));
    p.setColor(QPalette::Dark, window.darker(150));
    p.setColor(QPalette::Shadow, Qt::black);
    p.setColor(QPalette::Highlight, accent);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, accent.lighter(130));
    p.setColor(QPalette::LinkVisited, accent);
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, disabled);
    p.setColor(QPalette::Disabled, QPalette::Highlight, window.lighter(130));
    return p;
}

} // namespace

void apply(bool dark) {
    if (!QApplication::style() ||
        QApplication::style()->name().compare(QLatin1String("fusion"), Qt::CaseInsensitive) != 0)
        QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette palette = dark ? darkPalette() : QApplication::style()->standardPalette();
    if (!dark)
        palette.setColor(QPalette::Highlight, QColor(0x2f, 0x6f, 0x73));
    QApplication::setPalette(palette);
}

} // namespace tarnbridge::app::Appearance
