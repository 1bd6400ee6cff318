#include "app/shell/ToastCard.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/model/AppModel.h"
#include "app/model/Notices.h"
#include "app/shell/ShellTexts.h"
#include "app/shell/ThemeIcon.h"

namespace tarnbridge::app {

ToastCard::ToastCard(AppModel& app, QWidget* parent)
    : QFrame(parent)
    , app_(app) {
    setObjectName(QStringLiteral("toastCard"));
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::ToolTipBase);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 8, 8, 8);
    layout->setSpacing(8);
    auto* icon = new IconLabel(ShellTexts::icon("emblem-ok"), 24);
    layout->addWidget(icon, 0, Qt::AlignTop);
    auto* texts = new QVBoxLayout;
    title_ = new QLabel;
    title_->setObjectName(QStringLiteral("toastTitle"));
    QFont bold = title_->font();
    bold.setBold(true);
    title_->setFont(bold);
    detail_ = new QLabel;
    detail_->setObjectName(QStringLiteral("toastDetail"));
    texts->addWidget(title_);
    texts->addWidget(detail_);
    layout->addLayout(texts, 1);
    action_ = new QPushButton;
    action_->setObjectName(QStringLiteral("toastAction"));
    action_->setAccessibleName(QStringLiteral("Open Cleanup to review files"));
    connect(action_, &QPushButton::clicked, this, [this] { app_.notices().performToastAction(); });
    layout->addWidget(action_);
    auto* dismiss = new QToolButton;
    dismiss->setObjectName(QStringLiteral("dismissToast"));
    dismiss->setAutoRaise(true);
    dismiss->setIcon(ShellTexts::icon("window-close"));
    dismiss->setAccessibleName(QStringLiteral("Dismiss notification"));
    dismiss->setToolTip(QStringLiteral("Dismiss notification"));
    connect(dismiss, &QToolButton::clicked, this, [this] { app_.notices().clearToast(); });
    layout->addWidget(dismiss, 0, Qt::AlignTop);

    connect(&app_.notices(), &Notices::toastChanged, this, &ToastCard::showToast);
    showToast();
}

void ToastCard::showToast() {
    const auto& toast = app_.notices().toast();
    setVisible(bool(toast));
    if (!toast)
        return;
    title_->setText(toast->title);
    detail_->setText(toast->detail);
    detail_->setVisible(!toast->detail.isEmpty());
    action_->setVisible(bool(toast->action));
    action_->setText(toast->actionTitle);
    setAccessibleName(toast->title + QStringLiteral(" — open review"));
    adjustSize();
    raise();
    Q_EMIT shown();
}

} // namespace tarnbridge::app
