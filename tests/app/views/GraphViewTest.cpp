#include <gtest/gtest.h>

#include <QAction>
#include <QContextMenuEvent>
#include <QMenu>
#include <QTest>

#include <array>
#include <set>

#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/model/Preferences.h"
#include "ViewsFixture.h"

using tarnbridge::DiskNode;
using namespace tarnbridge::app;
using tarnbridge::test::markOf;
using tarnbridge::test::pointOf;
using tarnbridge::test::sceneReady;
using tarnbridge::test::ViewsFixture;
using tarnbridge::test::waitUntil;

namespace {

// For a person to look at: TARNBRIDGE_CHART_PICTURES names a folder for pictures of the chart.
void keepPicture(QWidget& view, const char* name) {
    if (const QString folder = qEnvironmentVariable("TARNBRIDGE_CHART_PICTURES"); !folder.isEmpty())
        view.grab().save(folder + QLatin1Char('/') + QLatin1String(name) + QStringLiteral(".png"));
}

class GraphViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(t.scan());
        view = std::make_unique<GraphView>(t.app());
        view->resize(800, 600);
        view->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(view.get()));
        ASSERT_TRUE(sceneReady(*view));
    }

    // The action of the open context menu whose text is `text`, or null.
    QAction* menuAction(const QString& text) const {
        QMenu* menu = view->contextMenu();
        if (!menu)
            return nullptr;
        for (QAction* action : menu->actions())
            if (action->text() == text)
                return action;
        return nullptr;
    }

    void rightClick(const QPoint& point) {
        QContextMenuEvent event(QContextMenuEvent::Mouse, point, view->mapToGlobal(point));
        QApplication::sendEvent(view.get(), &event);
    }

    QPointF centreOf(int mark) const {
        return view->scene()->marks[std::size_t(mark)].path.boundingRect().center();
    }

    ViewsFixture t;
    std::unique_ptr<GraphView> view;
};

TEST_F(GraphViewTest, DoubleClickOpensFolderAndBackspaceGoesUp) {
    ScanSession& session = t.session();
    QTest::mouseDClick(view.get(), Qt::LeftButton, {}, pointOf(*view, t.big));
    EXPECT_EQ(session.focusedPath(), t.big);
    ASSERT_TRUE(sceneReady(*view));
    EXPECT_GE(markOf(*view, t.a), 0);
    EXPECT_EQ(markOf(*view, t.loose), -1) << "the opened folder's chart shows only what lies in it";

    // A double click on a file selects it and leaves the focus where it is.
    QTest::mouseDClick(view.get(), Qt::LeftButton, {}, pointOf(*view, t.b));
    EXPECT_EQ(session.focusedPath(), t.big);
    EXPECT_EQ(session.selection(), t.b);

    view->setFocus();
    QTest::keyClick(view.get(), Qt::Key_Backspace);
    EXPECT_EQ(session.focusedPath(), t.root);
    ASSERT_TRUE(sceneReady(*view));
    EXPECT_GE(markOf(*view, t.loose), 0);
}

TEST_F(GraphViewTest, ArrowsMoveTheSelectionAndEnterOpens) {
    view->setFocus();
    EXPECT_EQ(view->selectedMark(), -1);
    QTest::keyClick(view.get(), Qt::Key_Right);
    const int first = view->selectedMark();
    ASSERT_GE(first, 0) << "the first arrow selects the largest item";
    EXPECT_EQ(view->scene()->marks[std::size_t(first)].node.path, t.big);

    // Every move lands on another of the folder's own marks, in the arrow's direction.
    std::set<std::string> items;
    for (const DiskNode& item : view->scene()->items)
        items.insert(item.path);
    std::set<int> visited{first};
    for (const auto& [key, dx, dy] :
         {std::tuple{Qt::Key_Right, 1, 0}, std::tuple{Qt::Key_Down, 0, 1},
          std::tuple{Qt::Key_Left, -1, 0}, std::tuple{Qt::Key_Up, 0, -1}}) {
        const int before = view->selectedMark();
        QTest::keyClick(view.get(), key);
        const int after = view->selectedMark();
        if (after == before)
            continue; // nothing lies that way
        visited.insert(after);
        EXPECT_TRUE(items.count(view->scene()->marks[std::size_t(after)].node.path));
        const QPointF step = centreOf(after) - centreOf(before);
        EXPECT_GT(step.x() * dx + step.y() * dy, 0) << "moved against key " << key;
    }
    EXPECT_GE(visited.size(), 3u) << "the arrows reach the other items";

    // Walk back to the big folder and open it with Enter.
    for (int i = 0; i < 8 && view->selectedMark() != first; ++i)
        QTest::keyClick(view.get(), i % 2 ? Qt::Key_Up : Qt::Key_Left);
    ASSERT_EQ(view->selectedMark(), first);
    QTest::keyClick(view.get(), Qt::Key_Return);
    EXPECT_EQ(t.session().focusedPath(), t.big);
}

TEST_F(GraphViewTest, ClickSelectsAFileInTheModel) {
    QTest::mouseClick(view.get(), Qt::LeftButton, {}, pointOf(*view, t.loose));
    EXPECT_EQ(t.session().selection(), t.loose);
    EXPECT_EQ(view->selectedMark(), markOf(*view, t.loose));
    // A folder is selected on the chart without being opened.
    QTest::mouseClick(view.get(), Qt::LeftButton, {}, pointOf(*view, t.medium));
    EXPECT_EQ(t.session().focusedPath(), t.root);
    EXPECT_EQ(view->selectedMark(), markOf(*view, t.medium));
}

TEST_F(GraphViewTest, ContextMenuStagesAndGuardsCleanup) {
    rightClick(pointOf(*view, t.loose));
    ASSERT_TRUE(view->contextMenu());
    const QList<QAction*> actions = view->contextMenu()->actions();
    ASSERT_FALSE(actions.isEmpty());
    EXPECT_EQ(actions.front()->text(), QStringLiteral("loose.bin"));
    EXPECT_FALSE(actions.front()->isEnabled());
    for (const char* text : {"Show in File Manager", "Preview", "Copy Path", "Move to Trash…"})
        EXPECT_TRUE(menuAction(QString::fromUtf8(text))) << text;
    EXPECT_FALSE(menuAction(QStringLiteral("Open folder"))) << "a file has nothing to open";

    QAction* stage = menuAction(QStringLiteral("Add to Cleanup"));
    ASSERT_TRUE(stage);
    ASSERT_TRUE(stage->isEnabled());
    const std::size_t before = t.app().cleanup().queue().size();
    stage->trigger();
    ASSERT_EQ(t.app().cleanup().queue().size(), before + 1);
    EXPECT_EQ(t.app().cleanup().queue().back().node.path, t.loose);
    view->contextMenu()->close();

    // A folder's menu opens it; Shift+F10 opens the menu of the selection.
    QTest::mouseClick(view.get(), Qt::LeftButton, {}, pointOf(*view, t.medium));
    QTest::keyClick(view.get(), Qt::Key_F10, Qt::ShiftModifier);
    ASSERT_TRUE(waitUntil(
        [&] { return view->contextMenu() && menuAction(QStringLiteral("Open folder")); }));
    EXPECT_EQ(view->contextMenu()->actions().front()->text(), QStringLiteral("Medium"));
    menuAction(QStringLiteral("Open folder"))->trigger();
    EXPECT_EQ(t.session().focusedPath(), t.medium);
    ASSERT_TRUE(sceneReady(*view));

    // A scan older than the disk may stage nothing.
    t.session().markHistorical();
    ASSERT_FALSE(t.app().canClean());
    rightClick(pointOf(*view, t.c));
    ASSERT_TRUE(menuAction(QStringLiteral("Add to Cleanup")));
    EXPECT_FALSE(menuAction(QStringLiteral("Add to Cleanup"))->isEnabled());
    EXPECT_FALSE(menuAction(QStringLiteral("Move to Trash…"))->isEnabled());
}

TEST_F(GraphViewTest, HoverDrawsOverTheCachedPicture) {
    view->repaint();
    const int builds = view->pictureBuilds();
    ASSERT_GE(builds, 1);
    std::set<int> hovered;
    for (const std::string& path : {t.big, t.medium, t.loose, t.notes, t.a}) {
        QTest::mouseMove(view.get(), pointOf(*view, path));
        ASSERT_TRUE(waitUntil([&] { return view->hoveredMark() == markOf(*view, path); })) << path;
        view->repaint();
        hovered.insert(view->hoveredMark());
    }
    EXPECT_EQ(hovered.size(), 5u);
    QTest::mouseClick(view.get(), Qt::LeftButton, {}, pointOf(*view, t.loose));
    QTest::mouseMove(view.get(), pointOf(*view, t.b));
    keepPicture(*view, "hover");
    EXPECT_EQ(view->pictureBuilds(), builds) << "hovering repainted the marks";

    // The labels switch does paint the marks again, over the same scene.
    const QUuid scene = view->scene()->id;
    t.app().explore().setShowLabels(!t.app().explore().showLabels());
    view->repaint();
    EXPECT_EQ(view->scene()->id, scene);
    EXPECT_EQ(view->pictureBuilds(), builds + 1);

    // A new scene under a still pointer takes the hover over without a move.
    const QPoint still = view->rect().center();
    QTest::mouseMove(view.get(), still);
    const int before = view->hoveredMark();
    ASSERT_GE(before, 0);
    t.app().explore().setStorageView(StorageView::sunburst);
    ASSERT_TRUE(sceneReady(*view));
    EXPECT_GE(view->hoveredMark(), 0);
    EXPECT_EQ(view->hoveredMark(), view->scene()->markAt(QPointF(still)));
}

TEST_F(GraphViewTest, EveryChartOpensAFolderOnDoubleClick) {
    ScanSession& session = t.session();
    for (StorageView chart : {StorageView::sunburst, StorageView::flame, StorageView::bubbles,
                              StorageView::mindMap, StorageView::treemap}) {
        t.app().explore().setStorageView(chart);
        ASSERT_TRUE(sceneReady(*view)) << int(chart);
        QTest::mouseDClick(view.get(), Qt::LeftButton, {}, pointOf(*view, t.big));
        EXPECT_EQ(session.focusedPath(), t.big) << int(chart);
        session.goUp();
        ASSERT_EQ(session.focusedPath(), t.root);
    }
}

TEST_F(GraphViewTest, SwitchesAmongChartsAndColourModesWithRecentScenesKept) {
    ExploreState& explore = t.app().explore();
    std::vector<QUuid> scenes;
    for (StorageView chart : {StorageView::sunburst, StorageView::flame, StorageView::bubbles,
                              StorageView::mindMap, StorageView::treemap}) {
        explore.setStorageView(chart);
        ASSERT_TRUE(sceneReady(*view)) << int(chart);
        EXPECT_FALSE(view->scene()->marks.empty()) << int(chart);
        EXPECT_GE(markOf(*view, t.big), 0) << int(chart);
        scenes.push_back(view->scene()->id);
        keepPicture(*view, std::array{"treemap", "folders", "sunburst", "flame", "bubbles",
                                      "mindmap"}[int(chart)]);
    }
    EXPECT_EQ(std::set<QUuid>(scenes.begin(), scenes.end()).size(), scenes.size());

    // The three latest scenes come back at once, without a build, and their pictures with them.
    view->repaint();
    const int builds = view->pictureBuilds();
    explore.setStorageView(StorageView::mindMap);
    EXPECT_EQ(view->scene()->id, scenes[3]);
    EXPECT_FALSE(view->isPending());
    view->repaint();
    EXPECT_EQ(view->pictureBuilds(), builds) << "the kept picture was painted again";
    explore.setStorageView(StorageView::bubbles);
    EXPECT_EQ(view->scene()->id, scenes[2]);
    // The oldest was pushed out and is built again.
    explore.setStorageView(StorageView::sunburst);
    EXPECT_TRUE(view->isPending());
    ASSERT_TRUE(sceneReady(*view));
    EXPECT_NE(view->scene()->id, scenes[0]);

    // Colour modes change the colour of the marks.
    explore.setStorageView(StorageView::treemap);
    ASSERT_TRUE(sceneReady(*view));
    const QColor byFolder = view->scene()->marks[std::size_t(markOf(*view, t.notes))].color;
    explore.setColorMode(ColorMode::type);
    ASSERT_TRUE(sceneReady(*view));
    const QColor byType = view->scene()->marks[std::size_t(markOf(*view, t.notes))].color;
    EXPECT_NE(byFolder, byType);
    explore.setColorMode(ColorMode::age);
    ASSERT_TRUE(sceneReady(*view));
    EXPECT_NE(view->readyKey().find("By age"), std::string::npos);

    // A view that is no chart shows no scene.
    explore.setStorageView(StorageView::table);
    EXPECT_EQ(view->scene(), nullptr);
}

TEST_F(GraphViewTest, EmptyStateAndDarkPicture) {
    const QImage light = view->grab().toImage();
    t.app().preferences().setDark(true);
    ASSERT_TRUE(sceneReady(*view));
    const QImage dark = view->grab().toImage();
    keepPicture(*view, "dark");
    EXPECT_LT(qGray(dark.pixel(2, 2)), qGray(light.pixel(2, 2)));

    t.app().explore().setFilter(QStringLiteral("no-such-name-anywhere"));
    ASSERT_TRUE(sceneReady(*view));
    EXPECT_TRUE(view->scene()->marks.empty());
    const QImage empty = view->grab().toImage();
    keepPicture(*view, "empty");
    // Centred text over a plain background.
    const QRgb background = empty.pixel(2, 2);
    int inked = 0;
    for (int y = empty.height() / 2; y < empty.height() / 2 + 80; ++y)
        for (int x = 0; x < empty.width(); ++x)
            inked += empty.pixel(x, y) != background;
    EXPECT_GT(inked, 0) << "no empty-state text";
}

} // namespace

namespace {

TEST(GraphViewPolicyTest, ContextMenuGivesTheRefusalOfAProtectedPath) {
    ViewsFixture t;
    const std::string key = t.f.tree().file("home/.ssh/id_test", 2'000'000);
    const std::string home = t.f.fake.home();
    t.session().startScan(home);
    ASSERT_TRUE(waitUntil([&] { return !t.session().scanning() && t.session().scan(); }));
    GraphView view(t.app());
    view.resize(800, 600);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    ASSERT_TRUE(sceneReady(view));
    ASSERT_TRUE(t.app().canClean());

    const QPoint at = pointOf(view, home + "/.ssh");
    QContextMenuEvent event(QContextMenuEvent::Mouse, at, view.mapToGlobal(at));
    QApplication::sendEvent(&view, &event);
    ASSERT_TRUE(view.contextMenu());
    const QList<QAction*> actions = view.contextMenu()->actions();
    const QString refusal =
        QStringLiteral("Protected system or account data — Tarnbridge cannot move this to Trash.");
    EXPECT_EQ(actions.back()->text(), refusal);
    EXPECT_FALSE(actions.back()->isEnabled());
    for (QAction* action : actions)
        if (action->text() == QStringLiteral("Add to Cleanup") ||
            action->text() == QStringLiteral("Move to Trash…")) {
            EXPECT_FALSE(action->isEnabled()) << action->text().toStdString();
            EXPECT_EQ(action->toolTip(), refusal);
        }
    view.contextMenu()->close();

    // A file of the scan's own tree is allowed, and says nothing.
    const QPoint file = pointOf(view, t.a.substr(0, t.a.find("/Scan")) + "/Scan");
    QContextMenuEvent other(QContextMenuEvent::Mouse, file, view.mapToGlobal(file));
    QApplication::sendEvent(&view, &other);
    ASSERT_TRUE(view.contextMenu());
    EXPECT_EQ(view.contextMenu()->actions().back()->text(), QStringLiteral("Move to Trash…"));
    EXPECT_TRUE(view.contextMenu()->actions().back()->isEnabled());
}

} // namespace

namespace {

TEST_F(GraphViewTest, ScenesCrossFadeOnlyWhereTheDesktopAnimates) {
    ExploreState& explore = t.app().explore();
    ASSERT_FALSE(QApplication::isEffectEnabled(Qt::UI_General))
        << "the offscreen platform animates nothing";
    view->repaint();
    explore.setStorageView(StorageView::sunburst);
    ASSERT_TRUE(sceneReady(*view));
    EXPECT_FALSE(view->isFading()) << "reduced motion switches at once";

    QApplication::setEffectEnabled(Qt::UI_General, true);
    const struct Restore {
        ~Restore() { QApplication::setEffectEnabled(Qt::UI_General, false); }
    } restore;
    view->repaint();
    const QImage before = view->grab().toImage();
    const int builds = view->pictureBuilds();
    explore.setStorageView(StorageView::flame);
    ASSERT_TRUE(sceneReady(*view));
    EXPECT_TRUE(view->isFading());
    ASSERT_TRUE(waitUntil([&] { return !view->isFading(); }, 2000));
    const QImage after = view->grab().toImage();
    EXPECT_NE(before, after);
    EXPECT_EQ(view->pictureBuilds(), builds + 1) << "the fade painted the marks more than once";
}

} // namespace
