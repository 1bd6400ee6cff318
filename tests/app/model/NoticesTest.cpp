#include <gtest/gtest.h>

#include <QElapsedTimer>

#include "AppFixture.h"
#include "app/model/Notices.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using tarnbridge::test::AppFixture;
using tarnbridge::test::spin;
using tarnbridge::test::waitUntil;

namespace {

CleanupEntry queued(const std::string& path)
{
    CleanupEntry e;
    e.node.path = path;
    return e;
}

} // namespace

TEST(Notices, AToastGoesAfterItsTimeAndALaterOneKeepsItsOwn)
{
    AppFixture f;
    Notices& notices = f.app().notices();
    // Wide margins: the second toast's check falls a second clear of either timer.
    notices.setToastDuration(2000);
    QElapsedTimer clock;
    clock.start();
    notices.showToast(QStringLiteral("First"), QString(), std::nullopt, QString());
    spin(1000);
    notices.showToast(QStringLiteral("Second"), QString(), ToastAction::cleanup, QStringLiteral("View Cleanup"));
    spin(int(2100 - clock.elapsed())); // the first toast's time is up; it must not take the second
    ASSERT_LT(clock.elapsed(), 2900) << "the machine was too slow to tell the two timers apart";
    ASSERT_TRUE(notices.toast());
    EXPECT_EQ(notices.toast()->title, QStringLiteral("Second"));
    ASSERT_TRUE(waitUntil([&] { return !notices.toast(); }, 5000));

    notices.performToastAction(); // no toast: nothing happens
    EXPECT_EQ(f.app().section(), AppSection::explore);
    notices.showToast(QStringLiteral("No action"), QString(), std::nullopt, QString());
    notices.performToastAction();
    EXPECT_EQ(f.app().section(), AppSection::explore);
    EXPECT_TRUE(notices.toast());
}

TEST(Notices, StagingSaysHowManyItemsAreNewAndStaysUntilUsed)
{
    AppFixture f;
    Notices& notices = f.app().notices();
    notices.setToastDuration(50);
    notices.setNotice(QStringLiteral("Scan complete — 1.0 seconds."));
    notices.reportAddedToCleanup({queued("/h/a")}, {});
    ASSERT_TRUE(notices.toast());
    EXPECT_EQ(notices.toast()->title, QStringLiteral("Added to Cleanup"));
    EXPECT_EQ(notices.toast()->detail, QStringLiteral("1 item"));
    EXPECT_FALSE(notices.notice());
    spin(200); // no timer for this one
    ASSERT_TRUE(notices.toast());

    notices.reportAddedToCleanup({queued("/h/a"), queued("/h/b"), queued("/h/c"), queued("/h/d")}, {queued("/h/a")});
    EXPECT_EQ(notices.toast()->detail, QStringLiteral("3 items"));
    // Inside a queued folder, or the folder itself: nothing new.
    notices.reportAddedToCleanup({queued("/h/dir/file"), queued("/h/dir")}, {queued("/h/dir")});
    EXPECT_EQ(notices.toast()->title, QStringLiteral("Already in Cleanup"));
    EXPECT_TRUE(notices.toast()->detail.isEmpty());
    // A sibling whose name only starts the same is new.
    notices.reportAddedToCleanup({queued("/h/dirt")}, {queued("/h/dir")});
    EXPECT_EQ(notices.toast()->title, QStringLiteral("Added to Cleanup"));

    notices.performToastAction();
    EXPECT_EQ(f.app().section(), AppSection::cleanup);
    EXPECT_FALSE(notices.toast());
}
