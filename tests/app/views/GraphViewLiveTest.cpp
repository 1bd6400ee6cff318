#include <gtest/gtest.h>

#include <QAction>
#include <QContextMenuEvent>
#include <QMenu>
#include <QTest>

#include "ViewsFixture.h"

using namespace tarnbridge::app;
using tarnbridge::test::markOf;
using tarnbridge::test::pointOf;
using tarnbridge::test::PreviewingScanner;
using tarnbridge::test::sceneReady;
using tarnbridge::test::ViewsFixture;
using tarnbridge::test::waitUntil;

namespace {

TEST(GraphViewLiveTest, ChartsThePreviewOfARunningScan) {
    PreviewingScanner scanner;
    ViewsFixture t{scanner.services()};
    const PreviewingScanner::Release release{scanner.gate};
    GraphView view(t.app());
    view.resize(800, 600);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    EXPECT_EQ(view.scene(), nullptr) << "nothing to chart before a scan";

    ScanSession& session = t.session();
    session.startScan(t.root);
    ASSERT_TRUE(
        waitUntil([&] { return session.scanProgress() && session.scanProgress()->browsing; }));
    ASSERT_TRUE(sceneReady(view));
    EXPECT_TRUE(view.readyKey().starts_with("live:"));
    EXPECT_GE(markOf(view, t.big), 0);
    EXPECT_GE(markOf(view, t.notes), 0);

    // Nothing may be staged from a scan still running.
    const QPoint file = pointOf(view, t.loose);
    QContextMenuEvent event(QContextMenuEvent::Mouse, file, view.mapToGlobal(file));
    QApplication::sendEvent(&view, &event);
    ASSERT_TRUE(view.contextMenu());
    bool sawStage = false;
    for (QAction* action : view.contextMenu()->actions())
        if (action->text() == QStringLiteral("Add to Cleanup")) {
            sawStage = true;
            EXPECT_FALSE(action->isEnabled());
        }
    EXPECT_TRUE(sawStage);
    view.contextMenu()->close();

    // A double click on a folder browses the preview.
    QTest::mouseDClick(&view, Qt::LeftButton, {}, pointOf(view, t.big));
    EXPECT_EQ(session.liveFocusPath(), t.big);

    scanner.gate.open();
    ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));
    ASSERT_TRUE(sceneReady(view));
    EXPECT_FALSE(view.readyKey().starts_with("live:")) << "the finished scan replaces the preview";
    const std::string focus = session.focusedPath();
    ASSERT_FALSE(view.scene()->marks.empty());
    for (const tarnbridge::GraphMark& mark : view.scene()->marks)
        EXPECT_TRUE(mark.node.path.starts_with(focus)) << mark.node.path << " outside " << focus;
}

} // namespace
