#include "app/screens/ExploreScreen.h"

#include <QVBoxLayout>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/screens/AgeMapView.h"
#include "app/screens/FileTableView.h"
#include "app/screens/FolderGridView.h"
#include "app/screens/QuickWinsView.h"
#include "app/screens/ScanProgressView.h"
#include "app/screens/TopSizesView.h"
#include "app/screens/WelcomeView.h"
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
    folders_ = new FolderGridView(app_, views_);
    ageMap_ = new AgeMapView(app_, views_);
    quickWin_ = new QuickWinsView(app_, views_);
    for (QWidget* view : {graph_, table_, topSizes_, folders_, ageMap_, quickWin_})
        views_->addWidget(view);
    layout->addWidget(views_, 1);
    addWidget(welcome_);
    addWidget(progress_);
    addWidget(content_);
    connect(&app_.session(), &ScanSession::progressChanged, this, &ExploreScreen::showState);
    connect(&app_.session(), &ScanSession::scanChanged, this, &ExploreScreen::showState);
    connect(&app_.explore(), &ExploreState::displayChanged, this, &ExploreScreen::showView);
    connect(&app_.explore(), &ExploreState::derivedChanged, this, &ExploreScreen::showView);
    showState();
    showView();
}

// A quick win chosen in the sidebar stands in for the view until it is closed.
void ExploreScreen::showView() {
    const StorageView view = app_.explore().storageView();
    QWidget* shown = graph_;
    if (app_.explore().activeQuickWin())
        shown = quickWin_;
    else if (view == StorageView::table)
        shown = table_;
    else if (view == StorageView::topSizes)
        shown = topSizes_;
    else if (view == StorageView::folders)
        shown = folders_;
    else if (view == StorageView::ageMap)
        shown = ageMap_;
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
