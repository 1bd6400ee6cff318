#include "app/screens/EmptyState.h"

#include <QIcon>
#include <QLabel>
#include <QVBoxLayout>

#include "app/shell/ThemeIcon.h"

namespace tarnbridge::app {

EmptyState::EmptyState(const QIcon& icon, const QString& title, const QString& line,
                       QWidget* parent)
    : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(8);
    layout->addStretch(1);
    layout->addWidget(new IconLabel(icon, 64), 0, Qt::AlignHCenter);
    title_ = new QLabel;
    title_->setObjectName(QStringLiteral("emptyTitle"));
    title_->setAlignment(Qt::AlignCenter);
    QFont font = title_->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 1.4);
    title_->setFont(font);
    layout->addWidget(title_);
    line_ = new QLabel;
    line_->setObjectName(QStringLiteral("emptyLine"));
    line_->setAlignment(Qt::AlignCenter);
    line_->setWordWrap(true);
    layout->addWidget(line_);
    buttons_ = new QVBoxLayout;
    buttons_->setContentsMargins(0, 8, 0, 0);
    buttons_->setAlignment(Qt::AlignHCenter);
    layout->addLayout(buttons_);
    layout->addStretch(1);
    setTexts(title, line);
}

void EmptyState::setTexts(const QString& title, const QString& line) {
    title_->setText(title);
    line_->setText(line);
    line_->setVisible(!line.isEmpty());
}

} // namespace tarnbridge::app
