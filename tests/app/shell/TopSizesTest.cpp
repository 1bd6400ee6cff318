#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QComboBox>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>

#include "app/model/ExploreState.h"
#include "app/model/TopSizesState.h"
#include "app/screens/TopSizesView.h"
#include "ShellFixture.h"

namespace tarnbridge::test {
namespace {

struct TopSizes : ::testing::Test {
    ShellFixture f;
    app::TopSizesView* view = nullptr;
    QTreeWidget* list = nullptr;

    void SetUp() override {
        for (int i = 0; i < 430; ++i)
            f.tree().file("scanned/many/f" + std::to_string(i) + ".dat", 100 + i);
        ASSERT_TRUE(f.scanToEnd());
        f.app().explore().setStorageView(app::StorageView::topSizes);
        view = f.window->findChild<app::TopSizesView*>(QStringLiteral("topSizes"));
        ASSERT_TRUE(view);
        list = view->list();
        ASSERT_TRUE(settled());
    }
    bool settled() {
        return waitUntil([&] { return !f.app().topSizes().isPending() && f.app().topSizes().page(); });
    }
    void chooseScope(RankingScope scope) {
        auto* picker = view->findChild<QComboBox*>(QStringLiteral("topSizesScope"));
        const int at = picker->findData(int(scope));
        picker->setCurrentIndex(at);
        Q_EMIT picker->activated(at);
    }
    QString firstName() const { return list->topLevelItem(0)->text(1).section(QLatin1Char('\n'), 0, 0); }
};

TEST_F(TopSizes, ScopesRankTheirRecordsAndPageByTwoHundred) {
    QAbstractItemModelTester tester(list->model(), QAbstractItemModelTester::FailureReportingMode::Warning);
    // In this folder: its children, the biggest first, shares of the folder.
    // The 430 small files take a block each: "many" outweighs "Media".
    EXPECT_EQ(list->topLevelItemCount(), 4);
    EXPECT_EQ(firstName(), QStringLiteral("many"));
    EXPECT_EQ(list->headerItem()->text(4), QStringLiteral("% of folder"));
    auto* more = view->findChild<QPushButton*>(QStringLiteral("topSizesMore"));
    EXPECT_FALSE(more->isVisible());

    chooseScope(RankingScope::files);
    ASSERT_TRUE(settled());
    EXPECT_EQ(list->topLevelItemCount(), 200);
    EXPECT_EQ(firstName(), QStringLiteral("film.mkv"));
    EXPECT_EQ(list->headerItem()->text(4), QStringLiteral("% of scan"));
    ASSERT_TRUE(more->isVisible());
    more->click();
    ASSERT_TRUE(settled());
    EXPECT_EQ(list->topLevelItemCount(), 400);
    more->click();
    ASSERT_TRUE(settled());
    EXPECT_EQ(list->topLevelItemCount(), 434); // the fixture's four files and the 430
    EXPECT_FALSE(more->isVisible());

    // Moving through folders does not rerun a ranking of the whole scan; a new scope starts
    // again at 200.
    const int started = f.app().topSizes().queriesStarted();
    f.app().session().browseLocation(f.tree().path("scanned/Media"));
    spin(200);
    EXPECT_EQ(f.app().topSizes().queriesStarted(), started);
    chooseScope(RankingScope::folders);
    ASSERT_TRUE(settled());
    EXPECT_EQ(f.app().topSizes().limit(), app::TopSizesState::kPage);
    EXPECT_EQ(firstName(), QStringLiteral("many"));
    for (int row = 0; row < list->topLevelItemCount(); ++row)
        EXPECT_TRUE(list->topLevelItem(row)->text(2).endsWith(QStringLiteral(" files"))) << row;
}

TEST_F(TopSizes, AFilterThatNothingPassesSaysSoAndDoubleClickOpensAFolder) {
    f.app().explore().setFilter(QStringLiteral("nothing-is-called-this"));
    ASSERT_TRUE(settled());
    EXPECT_TRUE(f.visibleTexts().contains(QStringLiteral("No matching items")));
    f.app().explore().setFilter(QString());
    ASSERT_TRUE(settled());
    ASSERT_GT(list->topLevelItemCount(), 0);
    QTreeWidgetItem* first = list->topLevelItem(0);
    const QPoint at = list->visualItemRect(first).center();
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, at);
    EXPECT_EQ(f.app().session().selection(), f.tree().path("scanned/many"));
    QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, at);
    EXPECT_EQ(f.app().session().focusedPath(), f.tree().path("scanned/many"));
}

} // namespace
} // namespace tarnbridge::test
