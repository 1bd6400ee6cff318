#include "app/shell/ThemeIcon.h"

#include <QApplication>
#include <QIconEngine>
#include <QPainter>
#include <QStandardPaths>

namespace tarnbridge::app {
namespace {

class TintedEngine : public QIconEngine {
public:
    explicit TintedEngine(QIcon source)
        : source_(std::move(source)) {}

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap pixmap =
            source_.pixmap(size, mode == QIcon::Disabled ? QIcon::Normal : mode, state);
        if (pixmap.isNull())
            return pixmap;
        const QPalette palette = QApplication::palette();
        QColor colour = palette.color(QPalette::WindowText);
        if (mode == QIcon::Disabled)
            colour = palette.color(QPalette::Disabled, QPalette::WindowText);
        else if (mode == QIcon::Selected)
            colour = palette.color(QPalette::HighlightedText);
        QPainter painter(&pixmap);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(pixmap.rect(), colour);
        return pixmap;
    }
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode,
               QIcon::State state) override {
        const qreal ratio = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
        QPixmap picture = pixmap(rect.size() * ratio, mode, state);
        picture.setDevicePixelRatio(ratio);
        painter->drawPixmap(rect, picture);
    }
    QSize actualSize(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        return source_.actualSize(size, mode, state);
    }
    QIconEngine* clone() const override { return new TintedEngine(source_); }
    QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) override {
        return source_.availableSizes(mode, state);
    }

private:
    QIcon source_;
};

// Without a desktop's platform theme (a bare X server, offscreen) Qt looks for icons nowhere:
// point it at the XDG data folders and Adwaita.
void findThemes() {
    static const bool done = [] {
        QStringList paths = QIcon::themeSearchPaths();
        for (const QString& data :
             QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation))
            if (!paths.contains(data + QStringLiteral("/icons")))
                paths << data + QStringLiteral("/icons");
        QIcon::setThemeSearchPaths(paths);
        if (QIcon::themeName().isEmpty() || QIcon::themeName() == QLatin1String("hicolor"))
            QIcon::setThemeName(QStringLiteral("Adwaita"));
        if (QIcon::fallbackThemeName().isEmpty())
            QIcon::setFallbackThemeName(QStringLiteral("Adwaita"));
        return true;
    }();
    (void)done;
}

} // namespace

QIcon themeIcon(std::initializer_list<const char*> names) {
    findThemes();
    for (const char* name : names) {
        const QString themeName = QLatin1String(name);
        if (QIcon::hasThemeIcon(themeName))
            return QIcon(new TintedEngine(QIcon::fromTheme(themeName)));
    }
    return QIcon(QStringLiteral(":/tarnbridge/tarnbridge.svg"));
}

IconLabel::IconLabel(QIcon icon, int size, QWidget* parent)
    : QWidget(parent)
    , icon_(std::move(icon))
    , size_(size) {
    setFixedSize(size, size);
}

void IconLabel::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    icon_.paint(&painter, rect(), Qt::AlignCenter, isEnabled() ? QIcon::Normal : QIcon::Disabled);
}

} // namespace tarnbridge::app
