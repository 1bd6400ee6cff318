#include "app/shell/Footer.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

#include "app/model/ApplicationsFlow.h"
#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/Notices.h"
#include "app/model/ScanSession.h"
#include "app/shell/ShellTexts.h"
#include "app/shell/ThemeIcon.h"

namespace tarnbridge::app {
namespace {

QWidget* iconLabel(const char* name) {
    return new IconLabel(ShellTexts::icon(name), 16);
}

} // namespace

Footer::Footer(AppModel& app, QWidget* parent)
    : QWidget(parent)
    , app_(app) {
    setObjectName(QStringLiteral("footer"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 4, 8, 4);
    layout->setSpacing(8);

    layout->addWidget(iconLabel("document-send"));
    auto* product = new QLabel(QStringLiteral("Tarnbridge"));
    QFont bold = product->font();
    bold.setBold(true);
    product->setFont(bold);
    layout->addWidget(product);
    status_ = new QLabel;
    status_->setObjectName(QStringLiteral("statusWord"));
    layout->addWidget(status_);
    layout->addStretch(1);

    notice_ = new QWidget;
    notice_->setObjectName(QStringLiteral("noticeLine"));
    auto* noticeLayout = new QHBoxLayout(notice_);
    noticeLayout->setContentsMargins(0, 0, 0, 0);
    noticeLayout->setSpacing(4);
    noticeLayout->addWidget(iconLabel("emblem-ok-symbolic"));
    noticeText_ = new QLabel;
    noticeText_->setObjectName(QStringLiteral("noticeText"));
    noticeText_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    noticeLayout->addWidget(noticeText_);
    auto* dismiss = new QToolButton;
    dismiss->setObjectName(QStringLiteral("dismissNotice"));
    dismiss->setAutoRaise(true);
    dismiss->setIcon(ShellTexts::icon("window-close"));
    dismiss->setAccessibleName(QStringLiteral("Dismiss notice"));
    dismiss->setToolTip(QStringLiteral("Dismiss notice"));
    connect(dismiss, &QToolButton::clicked, this,
            [this] { app_.notices().setNotice(std::nullopt); });
    noticeLayout->addWidget(dismiss);
    layout->addWidget(notice_);
    layout->addStretch(1);

    cleanup_ = new QToolButton;
    cleanup_->setObjectName(QStringLiteral("cleanupButton"));
    cleanup_->setAutoRaise(true);
    cleanup_->setIcon(ShellTexts::icon("user-trash"));
    cleanup_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    connect(cleanup_, &QToolButton::clicked, this,
            [this] { app_.setSection(AppSection::cleanup); });
    layout->addWidget(cleanup_);

    connect(&app_.session(), &ScanSession::progressChanged, this, &Footer::showStatus);
    connect(&app_.cleanup(), &CleanupFlow::changed, this, [this] {
        showStatus();
        showQueue();
    });
    connect(&app_.duplicates(), &DuplicateSearch::changed, this, &Footer::showStatus);
    connect(&app_.applications(), &ApplicationsFlow::changed, this, &Footer::showStatus);
    connect(&app_.notices(), &Notices::noticeChanged, this, &Footer::showNotice);
    showStatus();
    showNotice();
    showQueue();
}

void Footer::showStatus() {
    status_->setText(ShellTexts::statusWord(app_, app_.applications().inspectingApps()));
}

void Footer::showNotice() {
    const auto& notice = app_.notices().notice();
    notice_->setVisible(bool(notice));
    noticeText_->setText(notice.value_or(QString()));
}

void Footer::showQueue() {
    const auto& cleanup = app_.cleanup();
    const QString text = QStringLiteral("Cleanup") + QStringLiteral("  ") +
                         ShellTexts::number(qlonglong(cleanup.queue().size())) +
                         QStringLiteral(" · ") + ShellTexts::bytes(cleanup.queueBytes());
    cleanup_->setText(text);
    cleanup_->setAccessibleName(text);
}

} // namespace tarnbridge::app
