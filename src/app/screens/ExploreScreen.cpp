#include "app/screens/ExploreScreen.h"

#include <QLabel>
#include <QVBoxLayout>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/screens/FileTableView.h"
#include "app/screens/ScanProgressView.h"
#include "app/screens/TopSizesView.h"
#include "app/screens/WelcomeView.h"
#include "app/shell/ShellTexts.h"
#include "app/views/FolderBar.h"
#include "app/views/GraphView.h"

namespace tarnbridge::app {

ExploreScreen::ExploreScreen(AppModel& app, QWidget* parent)
    : QStackedWidget(parent)
    , app_(app) {
    setObjectName(QStringLiteral("exploreScreen"));
    welcome_ = new WelcomeView(app_);
    progress_ = new ScanProgressView(app_);
    content_ = new QWidget;
    content_->setObjectName(QStringLiteral("exploreContent"));
    auto* layout = new QVBoxLayout(content_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(new FolderBar(app_, content_));
    views_ = new QStackedWidget;
    graph_ = new GraphView(app_, views_);
    table_ = new FileTableView(app_, views_);
    topSizes_ = new TopSizesView(app_, views_);
    // Views not in the window yet show their name rather than a chart that is not theirs.
    pending_ = new QLabel;
    pending_->setObjectName(QStringLiteral("viewPlaceholder"));
    pending_->setAlignment(Qt::AlignCenter);
    pending_->setForegroundRole(QPalette::PlaceholderText);
    views_->addWidget(graph_);
    views_->addWidget(table_);
    views_->addWidget(topSizes_);
    views_->addWidget(pending_);
    layout->addWidget(views_, 1);
    addWidget(welcome_);
    addWidget(progress_);
    addWidget(content_);
    connect(&app_.session(), &ScanSession::progressChanged, this, &ExploreScreen::showState);
    connect(&app_.session(), &ScanSession::scanChanged, this, &ExploreScreen::showState);
    connect(&app_.explore(), &ExploreState::displayChanged, this, &ExploreScreen::showView);
    showState();
    showView();
}

void ExploreScreen::showView() {
    const StorageView view = app_.explore().storageView();
    const bool chart = view == StorageView::treemap || view == StorageView::sunburst ||
                       view == StorageView::flame || view == StorageView::bubbles ||
                       view == StorageView::mindMap;
    pending_->setText(ShellTexts::storageViewName(view));
    QWidget* shown = pending_;
    if (chart)
        shown = graph_;
    else if (view == StorageView::table)
        shown = table_;
    else if (view == StorageView::topSizes)
        shown = topSizes_;
    views_->setCurrentWidget(shown);
}

void ExploreScreen::showState() {
    const auto& session = app_.session();
    if (session.scanning())
        setCurrentWidget(progress_);
    else if (!session.scan())
        setCurrentWidget(welcome_);
    else
        setCurrentWidget(content_);
}

} // namespace tarnbridge::app
