#include <gtest/gtest.h>

#include <QCheckBox>
#include <QContextMenuEvent>
#include <QMenu>
#include <QPushButton>

#include <filesystem>

#include "ShellFixture.h"
#include "app/model/CleanupFlow.h"
#include "app/screens/CleanupReviewDialog.h"
#include "app/views/GraphView.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using tarnbridge::test::ShellFixture;
using tarnbridge::test::waitUntil;

namespace {

QAction* menuAction(GraphView& view, const QString& text)
{
    if (QMenu* menu = view.contextMenu())
        for (QAction* action : menu->actions())
            if (action->text() == text)
                return action;
    return nullptr;
}

void rightClickOn(GraphView& view, const std::string& path)
{
    const auto& marks = view.scene()->pathsByNode;
    const auto hit = marks.find(path);
    ASSERT_TRUE(hit != marks.end() && !hit->second.empty()) << path << " has no mark";
    const auto point = view.pointOn(hit->second.front());
    ASSERT_TRUE(point) << path << " is covered everywhere";
    QContextMenuEvent event(QContextMenuEvent::Mouse, point->toPoint(), view.mapToGlobal(point->toPoint()));
    QApplication::sendEvent(&view, &event);
}

} // namespace

TEST(CleanupReview, AFileStagedFromTheChartGoesToTheTrashWithAReceiptAfterTheReview)
{
    ShellFixture f;
    ASSERT_TRUE(f.scanToEnd());
    auto* view = f.window->findChild<GraphView*>();
    ASSERT_TRUE(view);
    ASSERT_TRUE(waitUntil([&] { return view->scene() && !view->isPending(); }));

    const std::string file = f.root() + "/notes.txt";
    rightClickOn(*view, file);
    QAction* stage = menuAction(*view, QStringLiteral("Add to Cleanup"));
    ASSERT_TRUE(stage && stage->isEnabled());
    stage->trigger();
    view->contextMenu()->close();
    ASSERT_EQ(f.app().cleanup().queue().size(), 1u);

    QTest::keyClick(f.window.get(), Qt::Key_K, Qt::ControlModifier);
    ASSERT_TRUE(waitUntil([&] { return f.window->reviewDialog() != nullptr; }));
    CleanupReviewDialog& review = *f.window->reviewDialog();
    EXPECT_EQ(review.windowTitle(), QStringLiteral("Move 1 item to Trash?"));
    EXPECT_TRUE(review.cancelButton()->isDefault()); // moving is never what Enter does
    for (QCheckBox* box : review.findChildren<QCheckBox*>())
        if (box->text() == QStringLiteral("Back up files before cleanup"))
            box->setChecked(false);
    EXPECT_EQ(review.confirmButton()->text(), QStringLiteral("Move to Trash"));
    QTest::mouseClick(review.confirmButton(), Qt::LeftButton);

    ASSERT_TRUE(waitUntil([&] { return !f.app().cleaning() && !f.app().cleanup().receipts().empty(); }));
    const TrashReceipt& receipt = f.app().cleanup().receipts().front();
    EXPECT_EQ(receipt.originalPath, file);
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_TRUE(std::filesystem::exists(receipt.trashPath));
    EXPECT_TRUE(f.app().cleanup().queue().empty());
    EXPECT_TRUE(f.app().session().isHistorical());
    EXPECT_TRUE(waitUntil([&] { return f.window->reviewDialog() == nullptr; }));

    // The scan no longer matches the disk: nothing more can be staged from it.
    rightClickOn(*view, f.root() + "/Docs");
    QAction* again = menuAction(*view, QStringLiteral("Add to Cleanup"));
    ASSERT_TRUE(again);
    EXPECT_FALSE(again->isEnabled());
    view->contextMenu()->close();
}

TEST(CleanupReview, CancellingTheReviewMovesNothingAndDropsTheRequest)
{
    ShellFixture f;
    ASSERT_TRUE(f.scanToEnd());
    const std::string file = f.root() + "/notes.txt";
    f.app().cleanup().stage({*f.app().session().scan()->node(file)}, std::nullopt, "test");
    ASSERT_EQ(f.app().cleanup().queue().size(), 1u);
    QTest::keyClick(f.window.get(), Qt::Key_K, Qt::ControlModifier);
    ASSERT_TRUE(waitUntil([&] { return f.window->reviewDialog() != nullptr; }));
    QTest::keyClick(f.window->reviewDialog(), Qt::Key_Escape);
    EXPECT_TRUE(waitUntil([&] { return !f.app().cleanup().cleanupRequest(); }));
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(f.app().cleanup().queue().size(), 1u);
    EXPECT_TRUE(f.app().cleanup().receipts().empty());
}
