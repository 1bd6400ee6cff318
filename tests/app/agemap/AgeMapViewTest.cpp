#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QGraphicsEffect>
#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>

#include "app/model/AgeMapState.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/model/Preferences.h"
#include "app/screens/AgeHeatMap.h"
#include "app/screens/AgeMapView.h"
#include "app/shell/ShellFixture.h"
#include "app/shell/ShellTexts.h"

namespace tarnbridge::test {
namespace {

constexpr std::int64_t kDay = 86'400;

// The real window's model, with the age map beside it in a window of its own.
struct AgeView {
    ShellFixture f;
    std::int64_t now = currentTime();
    std::unique_ptr<app::AgeMapView> view;

    AgeView()
    {
        old("scanned/Archive/2019.tar", 12'000, 400);
        old("scanned/Archive/2018.tar", 11'000, 400);
        old("scanned/Media/old.mov", 30'000, 800);
        view = std::make_unique<app::AgeMapView>(f.app());
        view->resize(1100, 760);
        view->show();
    }
    void old(const std::string& path, std::int64_t size, std::int64_t days)
    {
        f.tree().file(path, size);
        f.tree().setModified(path, now - days * kDay);
    }
    app::AgeMapState& state() { return f.app().explore().ageMap(); }
    bool show()
    {
        f.app().explore().setLogical(true);
        if (!f.scanToEnd())
            return false;
        f.app().explore().setStorageView(app::StorageView::ageMap);
        return settled();
    }
    bool settled()
    {
        return waitUntil([this] { return state().preparedKey() && !state().pending(); });
    }
    template <class W>
    W* child(const char* name)
    {
        return view->findChild<W*>(QLatin1String(name));
    }
    bool visible(const char* name) { return child<QWidget>(name) && child<QWidget>(name)->isVisibleTo(view.get()); }
    QStringList texts()
    {
        QStringList out;
        for (auto* label : view->findChildren<QLabel*>())
            if (label->isVisibleTo(view.get()))
                out << label->text();
        for (auto* button : view->findChildren<QPushButton*>())
            if (button->isVisibleTo(view.get()))
                out << button->text();
        return out;
    }
    QStringList rows(int column = 0)
    {
        QStringList out;
        for (int i = 0; i < view->list().topLevelItemCount(); ++i)
            out << view->list().topLevelItem(i)->text(column);
        return out;
    }
    ModificationMonth monthOf(std::int64_t days)
    {
        MonthCalendar calendar;
        return calendar.month(now - days * kDay);
    }
};

TEST(AgeMapView, PreparesThenShowsTheSummaryAndDimsItWhileTheNextIsMade)
{
    AgeView v;
    EXPECT_TRUE(v.texts().contains(QStringLiteral("Preparing age map…")));
    EXPECT_FALSE(v.visible("ageMapSummary"));
    v.f.app().explore().setLogical(true);
    ASSERT_TRUE(v.f.scanToEnd());
    v.f.app().explore().setStorageView(app::StorageView::ageMap);
    EXPECT_TRUE(v.visible("ageMapBusy"));
    ASSERT_TRUE(v.settled());
    EXPECT_FALSE(v.visible("ageMapBusy"));
    EXPECT_FALSE(v.texts().contains(QStringLiteral("Preparing age map…")));
    ASSERT_TRUE(v.visible("ageMapSummary"));
    auto* summary = v.child<QWidget>("ageMapSummary");
    EXPECT_FALSE(summary->graphicsEffect()->isEnabled());
    // Four files of today, two of 400 days, one of 800.
    EXPECT_EQ(v.view->bars()[0]->accessibleName(),
              QStringLiteral("Last 7 days, ") + app::ShellTexts::bytes(432'000));
    EXPECT_EQ(v.view->bars()[4]->accessibleName(), QStringLiteral("1–2 years, ") + app::ShellTexts::bytes(23'000));
    EXPECT_TRUE(v.texts().contains(QStringLiteral("Busiest month: ") + app::AgeColors::monthName(v.monthOf(0))));

    // A filter: the old bars stay, dimmed, with the spinner, until the new summary is in.
    v.f.app().explore().setMinimumBytes(20'000);
    EXPECT_TRUE(v.visible("ageMapBusy"));
    EXPECT_TRUE(summary->graphicsEffect()->isEnabled());
    EXPECT_FALSE(v.view->list().isEnabled()) << "stale rows take no action";
    EXPECT_EQ(v.view->bars()[4]->accessibleName(), QStringLiteral("1–2 years, ") + app::ShellTexts::bytes(23'000));
    ASSERT_TRUE(v.settled());
    EXPECT_FALSE(summary->graphicsEffect()->isEnabled());
    EXPECT_FALSE(v.visible("ageMapBusy"));
    EXPECT_TRUE(v.view->list().isEnabled());
    EXPECT_EQ(v.view->bars()[4]->accessibleName(), QStringLiteral("1–2 years, ") + app::ShellTexts::bytes(0));
}

TEST(AgeMapView, ABarThenAMonthChooseTheFilesListed)
{
    AgeView v;
    ASSERT_TRUE(v.show());
    EXPECT_TRUE(v.texts().contains(QStringLiteral("Big & untouched")));
    EXPECT_TRUE(v.texts().contains(QStringLiteral("No files over 40 MB have gone a year without being touched.")));

    v.view->bars()[4]->click();
    ASSERT_TRUE(v.settled());
    EXPECT_EQ(v.rows(), (QStringList{QStringLiteral("2019.tar"), QStringLiteral("2018.tar")}));
    EXPECT_EQ(v.child<QLabel>("ageListTitle")->text(), QStringLiteral("1–2 years"));
    EXPECT_EQ(v.child<QLabel>("ageListHeader")->text(), app::ShellTexts::bytes(23'000) + QStringLiteral(" across 2 items"));
    EXPECT_TRUE(v.visible("ageClearSelection"));

    // A click on a month's cell lists that month, and the bar is no longer chosen.
    auto& heat = v.view->heatMap();
    const QRect cell = heat.cellRect(v.monthOf(800));
    ASSERT_FALSE(cell.isEmpty());
    QTest::mouseClick(&heat, Qt::LeftButton, {}, cell.center());
    EXPECT_EQ(v.state().selectedMonth(), v.monthOf(800));
    EXPECT_FALSE(v.state().selectedRange());
    ASSERT_TRUE(v.settled());
    EXPECT_EQ(v.rows(), QStringList{QStringLiteral("old.mov")});
    EXPECT_EQ(v.child<QLabel>("ageListTitle")->text(), app::AgeColors::monthName(v.monthOf(800)));

    // By keyboard, from the month clicked: its neighbour has no files.
    heat.setFocus();
    ModificationMonth next = v.monthOf(800);
    const bool left = next.month > 1; // the row ends at January and December
    QTest::keyClick(&heat, left ? Qt::Key_Left : Qt::Key_Right);
    QTest::keyClick(&heat, Qt::Key_Return);
    next.month += left ? -1 : 1;
    EXPECT_EQ(v.state().selectedMonth(), next);
    ASSERT_TRUE(v.settled());
    EXPECT_TRUE(v.texts().contains(QStringLiteral("No files in this period.")));

    v.child<QPushButton>("ageClearSelection")->click();
    EXPECT_FALSE(v.state().selectedMonth());
    ASSERT_TRUE(v.settled());
    EXPECT_TRUE(v.rows().isEmpty());
    EXPECT_TRUE(v.texts().contains(QStringLiteral("over a year old")));
}

TEST(AgeMapView, ShowsFortyRowsAtATimeStagesTheListAndMarksStagedRows)
{
    AgeView v;
    for (int i = 0; i < 41; ++i)
        v.f.tree().file("scanned/Many/f" + std::to_string(100 + i), 100 + i);
    ASSERT_TRUE(v.show());
    v.view->bars()[0]->click();
    ASSERT_TRUE(v.settled());
    EXPECT_EQ(v.rows().size(), 40);
    auto* more = v.child<QPushButton>("ageShowMore");
    ASSERT_TRUE(more->isVisibleTo(v.view.get()));
    EXPECT_EQ(more->text(), QStringLiteral("Show 40 more"));
    more->click();
    EXPECT_EQ(v.rows().size(), 45);
    EXPECT_FALSE(more->isVisibleTo(v.view.get()));

    v.view->bars()[4]->click();
    ASSERT_TRUE(v.settled());
    auto* stage = v.child<QPushButton>("ageStage");
    EXPECT_EQ(stage->text(), QStringLiteral("Add 2 to Cleanup"));
    ASSERT_TRUE(stage->isEnabled());
    stage->click();
    ASSERT_TRUE(waitUntil([&] { return v.f.app().cleanup().queue().size() == 2u && !v.f.app().staging(); }));
    ASSERT_TRUE(waitUntil([&] { return v.rows(3).count(QStringLiteral("Selected in Explore")) == 2; }));

    v.f.app().explore().setFilter(QStringLiteral("2019"));
    ASSERT_TRUE(v.settled());
    EXPECT_EQ(stage->text(), QStringLiteral("Add 1 matching files to Cleanup"));

    // A month without files under the filter.
    v.state().selectMonth(v.monthOf(800));
    ASSERT_TRUE(v.settled());
    EXPECT_TRUE(v.texts().contains(QStringLiteral("No files in this period.")));
    EXPECT_FALSE(stage->isVisibleTo(v.view.get()));
    v.f.app().explore().setFilter(QStringLiteral("nothing matches this"));
    ASSERT_TRUE(v.settled());
    EXPECT_TRUE(v.texts().contains(QStringLiteral("No timestamps to plot here.")));
}

TEST(AgeMapView, TheHeatMapTakesTheLevelColoursOfTheTheme)
{
    AgeView v;
    ASSERT_TRUE(v.show());
    auto& heat = v.view->heatMap();
    const ModificationMonth busiest = v.monthOf(0);
    ASSERT_EQ(heat.levelOf(busiest), 6);
    ASSERT_EQ(heat.levelOf(v.monthOf(800)), 2) << "30,000 of 432,000 bytes";
    for (bool dark : {false, true}) {
        v.f.app().preferences().setDark(dark);
        const QImage image = heat.grab().toImage();
        EXPECT_EQ(image.pixel(heat.cellRect(busiest).center()), app::AgeColors::heat(6, dark).rgb()) << dark;
        EXPECT_EQ(image.pixel(heat.cellRect(v.monthOf(800)).center()), app::AgeColors::heat(2, dark).rgb()) << dark;
    }
    EXPECT_NE(app::AgeColors::heat(6, false), app::AgeColors::heat(6, true));
}

} // namespace
} // namespace tarnbridge::test
