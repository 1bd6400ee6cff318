#pragma once

#include <QIcon>
#include <QWidget>

namespace tarnbridge::app {

// A freedesktop symbolic icon drawn in the palette's text colour at the time it is painted, so
// that one icon serves the light and the dark palette. `names` are tried in order; without any
// of them in the theme, the bundled product icon stands in.
QIcon themeIcon(std::initializer_list<const char*> names);

// A label for an icon that follows the palette: it paints the icon anew every time.
class IconLabel : public QWidget {
    Q_OBJECT
public:
    IconLabel(QIcon icon, int size, QWidget* parent = nullptr);
    QSize sizeHint() const override { return QSize(size_, size_); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QIcon icon_;
    int size_;
};

} // namespace tarnbridge::app
