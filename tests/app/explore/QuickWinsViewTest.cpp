#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QPushButton>
#include <QTest>
#include <QToolButton>
#include <QTreeView>

#include <set>

#include "app/itemmodels/QuickWinModel.h"
#include "app/model/CleanupFlow.h"
#include "app/screens/QuickWinsView.h"
#include "app/shell/ShellTexts.h"
#include "app/views/NodeActions.h"
#include "ExploreFixture.h"

namespace tarnbridge::test {
namespace {

struct Wins : ::testing::Test {
    ExploreFixture f;
    std::unique_ptr<app::QuickWinsView> view;

    void SetUp() override {
        f.tree().file("home/projA/build/out.o", 50'000);
        f.tree().file("home/projB/build/out.o", 30'000);
        f.tree().file("home/projC/dist/bundle.js", 20'000);
        f.tree().file("home/Library/Mail/V10/box.mbox", 10'000);
        view = std::make_unique<app::QuickWinsView>(f.app());
        view->resize(1000, 600);
        view->show();
        ASSERT_TRUE(f.scanToEnd(home()));
    }
    void TearDown() override { view.reset(); }

    std::string home() { return f.fixture.fake.home(); }
    app::ExploreState& explore() { return f.app().explore(); }
    std::set<std::string> rows() const {
        std::set<std::string> out;
        for (const DiskNode& node : view->model()->nodes())
            out.insert(node.path);
        return out;
    }
    const QuickWin& win(QuickWinKind kind) {
        for (const QuickWin& each : explore().quickWins())
            if (each.kind == kind)
                return each;
        throw std::logic_error("no such kind");
    }
};

// The action stages exactly the candidates that pass the filters, with the kind as the reason.
TEST_F(Wins, StagesExactlyThePassingCandidates) {
    QAbstractItemModelTester tester(view->model(),
                                    QAbstractItemModelTester::FailureReportingMode::Fatal);
    explore().setActiveQuickWin(QuickWinKind::builds);
    const std::string a = home() + "/projA/build", b = home() + "/projB/build",
                      c = home() + "/projC/dist";
    EXPECT_EQ(rows(), (std::set<std::string>{a, b, c}));
    const QStringList texts = shownTexts(*view);
    EXPECT_TRUE(texts.contains(QStringLiteral("Candidates to review")));
    EXPECT_TRUE(texts.contains(QStringLiteral("Build artifacts")));
    EXPECT_TRUE(texts.contains(QString::fromUtf8(info(QuickWinKind::builds).explanation.data())));
    EXPECT_TRUE(texts.contains(app::ShellTexts::bytes(win(QuickWinKind::builds).bytes())));
    QPushButton* stage = view->stageButton();
    EXPECT_EQ(stage->text(), QStringLiteral("Add 3 items to Cleanup"));
    EXPECT_TRUE(stage->isEnabled());

    explore().setFilter(QStringLiteral("build"));
    EXPECT_EQ(rows(), (std::set<std::string>{a, b}));
    EXPECT_EQ(stage->text(), QStringLiteral("Add 2 items to Cleanup"));
    stage->click();
    ASSERT_TRUE(waitUntil(
        [&] { return !f.app().cleanup().staging() && f.app().cleanup().queue().size() == 2; }));
    std::set<std::string> staged;
    for (const CleanupEntry& entry : f.app().cleanup().queue()) {
        staged.insert(entry.node.path);
        EXPECT_EQ(entry.reason, "Build artifacts");
    }
    EXPECT_EQ(staged, (std::set<std::string>{a, b}));
}

// Mail stores are refused by the policy: listed, never staged, the refusal told on the action.
// A saved scan stages nothing either.
TEST_F(Wins, RefusedCandidatesAndSavedScansCannotBeStaged) {
    explore().setActiveQuickWin(QuickWinKind::mail);
    ASSERT_EQ(rows(), std::set<std::string>{home() + "/Library/Mail"});
    QPushButton* stage = view->stageButton();
    EXPECT_TRUE(stage->isVisible());
    EXPECT_FALSE(stage->isEnabled());
    const auto why = app::NodeActions::refusal(f.app(), view->model()->nodes().front());
    ASSERT_TRUE(why);
    EXPECT_EQ(stage->toolTip(), *why);
    stage->click();
    spin(200);
    EXPECT_TRUE(f.app().cleanup().queue().empty());

    explore().setActiveQuickWin(QuickWinKind::builds);
    EXPECT_TRUE(stage->isEnabled());
    f.app().session().markHistorical();
    EXPECT_FALSE(stage->isEnabled());
    EXPECT_EQ(stage->toolTip(), QStringLiteral("Rescan to stage files from a saved scan."));
}

TEST_F(Wins, EmptyStatesCloseAndOpen) {
    explore().setActiveQuickWin(QuickWinKind::builds);
    explore().setFilter(QStringLiteral("nothing-like-this"));
    QStringList texts = shownTexts(*view);
    EXPECT_TRUE(texts.contains(QStringLiteral("No matching items")));
    EXPECT_TRUE(texts.contains(QStringLiteral("Clear filters to see the other candidates.")));
    EXPECT_FALSE(texts.contains(QStringLiteral("Nothing to review here")));
    EXPECT_FALSE(view->stageButton()->isVisible());
    explore().setFilter(QString());

    explore().setActiveQuickWin(QuickWinKind::simulators);
    texts = shownTexts(*view);
    EXPECT_TRUE(texts.contains(QStringLiteral("Nothing to review here")));
    EXPECT_TRUE(
        texts.contains(QStringLiteral("No iOS Simulators candidates were found in this scan.")));
    EXPECT_FALSE(texts.contains(QStringLiteral("No matching items")));

    view->findChild<QToolButton*>(QStringLiteral("quickWinClose"))->click();
    EXPECT_FALSE(explore().activeQuickWin());

    // A double click opens a folder, which ends the review.
    explore().setActiveQuickWin(QuickWinKind::builds);
    const auto& nodes = view->model()->nodes();
    const auto at = std::find_if(nodes.begin(), nodes.end(), [&](const DiskNode& n) {
        return n.path == home() + "/projB/build";
    });
    ASSERT_NE(at, nodes.end());
    const QModelIndex index = view->model()->index(int(at - nodes.begin()), 0);
    const QPoint centre = view->list()->visualRect(index).center();
    QTest::mouseClick(view->list()->viewport(), Qt::LeftButton, {}, centre);
    EXPECT_EQ(f.app().session().selection(), home() + "/projB/build");
    QTest::mouseDClick(view->list()->viewport(), Qt::LeftButton, {}, centre);
    EXPECT_EQ(f.app().session().focusedPath(), home() + "/projB/build");
    EXPECT_FALSE(explore().activeQuickWin());
}

} // namespace
} // namespace tarnbridge::test
