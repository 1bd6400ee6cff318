#include "app/screens/PlaceholderScreen.h"

#include "app/shell/ShellTexts.h"

namespace tarnbridge::app {

PlaceholderScreen::PlaceholderScreen(AppSection section, QWidget* parent)
    : QLabel(ShellTexts::sectionName(section), parent) {
    setObjectName(QStringLiteral("placeholder"));
    setAlignment(Qt::AlignCenter);
    QFont font = this->font();
    font.setPointSizeF(font.pointSizeF() * 1.4);
    setFont(font);
    setForegroundRole(QPalette::PlaceholderText);
}

} // namespace tarnbridge::app
