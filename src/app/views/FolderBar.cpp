#include "app/views/FolderBar.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"

namespace tarnbridge::app {

namespace {

QToolButton* navigationButton(QWidget* parent, const char* icon, const QString& name,
                              const QString& help) {
    auto* button = new QToolButton(parent);
    button->setIcon(QIcon::fromTheme(QString::fromLatin1(icon)));
    button->setAutoRaise(true);
    button->setAccessibleName(name);
    button->setToolTip(help);
    return button;
}

} // namespace

FolderBar::FolderBar(AppModel& app, QWidget* parent)
    : QWidget(parent)
    , app_(app)
    , back_(navigationButton(this, "go-previous", tr("Back"), tr("Back — Alt+Left")))
    , forward_(navigationButton(this, "go-next", tr("Forward"), tr("Forward — Alt+Right")))
    , up_(navigationButton(this, "go-up", tr("Parent folder"), tr("Parent folder — Alt+Up")))
    , crumbs_(new QHBoxLayout)
    , chips_(new QHBoxLayout) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 4, 8, 4);
    layout->setSpacing(4);
    layout->addWidget(back_);
    layout->addWidget(forward_);
    layout->addWidget(up_);
    layout->addSpacing(8);
    crumbs_->setSpacing(0);
    layout->addLayout(crumbs_);
    layout->addStretch(1);
    chips_->setSpacing(6);
    layout->addLayout(chips_);

    ScanSession& session = app_.session();
    connect(back_, &QToolButton::clicked, &session, &ScanSession::goBack);
    connect(forward_, &QToolButton::clicked, &session, &ScanSession::goForward);
    connect(up_, &QToolButton::clicked, &session, &ScanSession::goUp);
    connect(&session, &ScanSession::focusChanged, this, &FolderBar::refreshNavigation);
    connect(&session, &ScanSession::progressChanged, this, &FolderBar::refreshNavigation);
    connect(&session, &ScanSession::scanChanged, this, &FolderBar::refreshNavigation);
    connect(&app_.explore(), &ExploreState::filtersChanged, this, &FolderBar::refreshFilters);
    refreshNavigation();
    refreshFilters();
}

// Later: a clicked crumb or chip may be the sender of the change that rebuilds the bar.
void FolderBar::clear(QHBoxLayout* layout) {
    while (QLayoutItem* item = layout->takeAt(0)) {
        if (QWidget* widget = item->widget()) {
            widget->hide();
            widget->setParent(nullptr);
            widget->deleteLater();
        }
        delete item;
    }
}

void FolderBar::refreshNavigation() {
    const ScanSession& session = app_.session();
    const FolderNavigationHistory& history = session.displayedNavigation();
    back_->setEnabled(!history.back.empty());
    forward_->setEnabled(!history.forward.empty());
    up_->setEnabled(session.canGoUp());

    clear(crumbs_);
    const std::vector<DiskNode> path = session.navigationBreadcrumbs();
    const int count = int(path.size());
    for (int i = 0; i < count; ++i) {
        // Deep paths keep their first crumb and the last few.
        if (count > kMaxCrumbs && i > 0 && i < count - (kMaxCrumbs - 2)) {
            if (i == 1) {
                auto* gap = new QLabel(QStringLiteral("…"), this);
                crumbs_->addWidget(gap);
            }
            continue;
        }
        if (i > 0) {
            auto* separator = new QLabel(QStringLiteral("›"), this);
            separator->setContentsMargins(2, 0, 2, 0);
            crumbs_->addWidget(separator);
        }
        const DiskNode& node = path[std::size_t(i)];
        auto* crumb = new QToolButton(this);
        crumb->setAutoRaise(true);
        crumb->setText(session.displayName(node));
        crumb->setToolTip(QString::fromStdString(node.path));
        if (i == count - 1) {
            QFont bold = crumb->font();
            bold.setBold(true);
            crumb->setFont(bold);
        }
        connect(crumb, &QToolButton::clicked, this,
                [this, target = node.path] { app_.session().browseLocation(target); });
        crumbs_->addWidget(crumb);
    }
}

void FolderBar::refreshFilters() {
    clear(chips_);
    const std::vector<ActiveExplorerFilter> filters = app_.explore().activeFilters();
    for (const ActiveExplorerFilter& filter : filters) {
        auto* chip = new QFrame(this);
        chip->setFrameShape(QFrame::StyledPanel);
        chip->setObjectName(QStringLiteral("filterChip"));
        auto* row = new QHBoxLayout(chip);
        row->setContentsMargins(8, 0, 2, 0);
        row->setSpacing(2);
        row->addWidget(new QLabel(filter.title, chip));
        auto* remove = new QToolButton(chip);
        remove->setAutoRaise(true);
        remove->setIcon(QIcon::fromTheme(QStringLiteral("window-close")));
        if (remove->icon().isNull())
            remove->setText(QStringLiteral("×"));
        remove->setAccessibleName(tr("Remove filter — ") + filter.title);
        remove->setToolTip(remove->accessibleName());
        connect(remove, &QToolButton::clicked, this,
                [this, id = filter.id] { app_.explore().removeFilter(id); });
        row->addWidget(remove);
        chips_->addWidget(chip);
    }
    if (!filters.empty()) {
        auto* all = new QToolButton(this);
        all->setText(tr("Clear all"));
        all->setToolTip(tr("Clear all filters"));
        all->setAccessibleName(tr("Clear all"));
        connect(all, &QToolButton::clicked, this, [this] { app_.explore().clearFilters(); });
        chips_->addWidget(all);
    }
}

} // namespace tarnbridge::app
