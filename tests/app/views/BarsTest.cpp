#include <gtest/gtest.h>

#include <QComboBox>
#include <QSlider>
#include <QStandardItemModel>
#include <QToolButton>

#include "app/model/ExploreState.h"
#include "app/views/ExplorationToolbar.h"
#include "app/views/FolderBar.h"
#include "ViewsFixture.h"

using namespace tarnbridge::app;
using tarnbridge::test::ViewsFixture;

namespace {

// The buttons of `bar` whose accessible name is `name`.
QList<QToolButton*> buttonsNamed(const QWidget& bar, const QString& name) {
    QList<QToolButton*> out;
    for (QToolButton* button : bar.findChildren<QToolButton*>())
        if (button->accessibleName() == name && !button->isHidden())
            out.push_back(button);
    return out;
}

QToolButton* crumb(const QWidget& bar, const QString& text) {
    for (QToolButton* button : bar.findChildren<QToolButton*>())
        if (button->text() == text && !button->isHidden())
            return button;
    return nullptr;
}

TEST(FolderBarTest, FilterChipsRemoveTheirOwnFilter) {
    ViewsFixture t;
    ASSERT_TRUE(t.scan());
    FolderBar bar(t.app());
    bar.show();
    ExploreState& explore = t.app().explore();
    EXPECT_TRUE(buttonsNamed(bar, QStringLiteral("Clear all")).isEmpty()) << "no filter, no chips";

    explore.setFilter(QStringLiteral("bin"));
    explore.setMinimumBytes(10'000'000);
    explore.setShowHidden(false);
    QCoreApplication::processEvents();
    const QString nameChip = QStringLiteral("Remove filter — Name: bin");
    ASSERT_EQ(buttonsNamed(bar, nameChip).size(), 1);
    ASSERT_EQ(buttonsNamed(bar, QStringLiteral("Remove filter — Hidden files excluded")).size(), 1);
    ASSERT_EQ(buttonsNamed(bar, QStringLiteral("Clear all")).size(), 1);
    EXPECT_EQ(buttonsNamed(bar, QStringLiteral("Clear all")).front()->toolTip(),
              QStringLiteral("Clear all filters"));

    buttonsNamed(bar, nameChip).front()->click();
    QCoreApplication::processEvents();
    EXPECT_TRUE(explore.filter().isEmpty());
    EXPECT_EQ(explore.minimumBytes(), 10'000'000) << "only its own filter goes";
    EXPECT_FALSE(explore.showHidden());
    EXPECT_TRUE(buttonsNamed(bar, nameChip).isEmpty());

    buttonsNamed(bar, QStringLiteral("Clear all")).front()->click();
    QCoreApplication::processEvents();
    EXPECT_TRUE(explore.activeFilters().empty());
    EXPECT_TRUE(explore.showHidden());
    EXPECT_TRUE(buttonsNamed(bar, QStringLiteral("Clear all")).isEmpty());
}

TEST(FolderBarTest, NavigationButtonsAndCrumbsFollowTheHistory) {
    ViewsFixture t;
    ASSERT_TRUE(t.scan());
    FolderBar bar(t.app());
    bar.show();
    ScanSession& session = t.session();
    EXPECT_FALSE(bar.backButton()->isEnabled());
    EXPECT_FALSE(bar.forwardButton()->isEnabled());
    EXPECT_FALSE(bar.parentButton()->isEnabled()) << "the scan's root has no parent here";
    EXPECT_EQ(bar.forwardButton()->toolTip(), QStringLiteral("Forward — Alt+Right"));
    EXPECT_EQ(bar.parentButton()->toolTip(), QStringLiteral("Parent folder — Alt+Up"));

    session.browseLocation(t.d.substr(0, t.d.rfind('/')));
    QCoreApplication::processEvents();
    EXPECT_TRUE(bar.backButton()->isEnabled());
    EXPECT_TRUE(bar.parentButton()->isEnabled());
    ASSERT_TRUE(crumb(bar, QStringLiteral("inner")));
    ASSERT_TRUE(crumb(bar, QStringLiteral("Medium")));

    crumb(bar, QStringLiteral("Medium"))->click();
    QCoreApplication::processEvents();
    EXPECT_EQ(session.focusedPath(), t.medium);
    EXPECT_FALSE(crumb(bar, QStringLiteral("inner"))) << "the crumbs end at the shown folder";

    bar.backButton()->click();
    QCoreApplication::processEvents();
    EXPECT_EQ(session.focusedPath(), t.d.substr(0, t.d.rfind('/')));
    EXPECT_TRUE(bar.forwardButton()->isEnabled());
    bar.parentButton()->click();
    EXPECT_EQ(session.focusedPath(), t.medium);
}

TEST(ExplorationToolbarTest, ControlsSetAndFollowTheModel) {
    ViewsFixture t;
    ASSERT_TRUE(t.scan());
    ExplorationToolbar bar(t.app());
    bar.show();
    ExploreState& explore = t.app().explore();
    QComboBox* views = bar.viewSelector();
    ASSERT_EQ(views->count(), 9);
    EXPECT_EQ(views->itemText(5), QStringLiteral("Mind Map"));
    EXPECT_EQ(bar.depthSlider()->toolTip(), QStringLiteral("How many folder levels to draw"));
    EXPECT_EQ(bar.colorPicker()->toolTip(), QStringLiteral("What the colours mean"));
    EXPECT_EQ(bar.labelsToggle()->toolTip(), QStringLiteral("Draw labels on visualisations"));

    views->setCurrentIndex(2);
    Q_EMIT views->activated(2);
    EXPECT_EQ(explore.storageView(), StorageView::sunburst);
    bar.depthSlider()->setValue(3);
    EXPECT_EQ(explore.visualizationDepth(), 3);
    bar.colorPicker()->setCurrentIndex(2);
    Q_EMIT bar.colorPicker()->activated(2);
    EXPECT_EQ(explore.colorMode(), ColorMode::age);
    const bool labels = explore.showLabels();
    bar.labelsToggle()->click();
    EXPECT_EQ(explore.showLabels(), !labels);

    // The depth belongs to the charts only; the controls follow changes made elsewhere.
    explore.setStorageView(StorageView::table);
    EXPECT_TRUE(bar.depthSlider()->isHidden());
    EXPECT_EQ(views->currentText(), QStringLiteral("Table"));
    explore.setStorageView(StorageView::bubbles);
    EXPECT_FALSE(bar.depthSlider()->isHidden());
    explore.setVisualizationDepth(8);
    EXPECT_EQ(bar.depthSlider()->value(), 8);
    explore.setColorMode(ColorMode::type);
    EXPECT_EQ(bar.colorPicker()->currentText(), QStringLiteral("By type"));
}

} // namespace

namespace {

TEST(ExplorationToolbarTest, DuringAScanOnlyItsViewsAreOffered) {
    tarnbridge::test::PreviewingScanner scanner;
    ViewsFixture t{scanner.services()};
    const tarnbridge::test::PreviewingScanner::Release release{scanner.gate};
    ExplorationToolbar bar(t.app());
    t.session().startScan(t.root);
    ASSERT_TRUE(tarnbridge::test::waitUntil([&] { return t.session().scanProgress() != nullptr; }));
    QComboBox* views = bar.viewSelector();
    const auto* items = qobject_cast<QStandardItemModel*>(views->model());
    ASSERT_TRUE(items);
    EXPECT_EQ(views->itemText(0), QStringLiteral("Treemap"));
    EXPECT_TRUE(items->item(0)->isEnabled());
    EXPECT_EQ(views->itemText(8), QStringLiteral("Table — available after scanning"));
    EXPECT_FALSE(items->item(8)->isEnabled());

    scanner.gate.open();
    ASSERT_TRUE(tarnbridge::test::waitUntil([&] { return !t.session().scanning(); }));
    EXPECT_EQ(views->itemText(8), QStringLiteral("Table"));
    EXPECT_TRUE(items->item(8)->isEnabled());
}

} // namespace
