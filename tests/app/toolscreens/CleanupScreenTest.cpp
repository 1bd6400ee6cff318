#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <QCheckBox>
#include <QPushButton>

#include <csignal>
#include <filesystem>
#include <functional>

#include "ToolsFixture.h"
#include "app/model/CleanupFlow.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/screens/CleanupReviewDialog.h"
#include "app/tools/CleanupScreen.h"
#include "app/tools/ToolWidgets.h"
#include "cleanup/CleanupPolicy.h"
#include "model/Errors.h"
#include "support/Checks.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using namespace tarnbridge::test;

namespace {

// A home with a work folder of three small files, scanned.
struct CleanupScreenFixture : ToolsFixture {
    std::string work = tree().folder("home/work");
    std::string a = tree().file("home/work/a.txt", 4000);
    std::string b = tree().file("home/work/b.txt", 5000);
    std::string p = tree().file("home/work/p.txt", 6000);
    std::string kept = tree().file("home/work/kept.txt", 5000);

    CleanupFlow& flow() { return app().cleanup(); }
    CleanupScreen& screen() { return ToolsFixture::screen<CleanupScreen>(); }
    DiskNode node(const std::string& path) { return *app().session().scan()->node(path); }
    void stage(const std::string& path) { flow().stage({node(path)}, std::nullopt, "Large file"); }

    // Waits for the review of the whole queue, as the screen's main button asks for it.
    bool openReview()
    {
        QTest::mouseClick(screen().moveButton(), Qt::LeftButton);
        return waitUntil([&] { return window->reviewDialog() != nullptr; });
    }
};

// Holds a write lease on a file: the next open of it waits until the lease goes. A barrier
// inside the backup, which the test cannot reach otherwise.
class OpenBarrier {
public:
    explicit OpenBarrier(const std::string& path)
    {
        previous_ = std::signal(SIGIO, SIG_IGN); // the lease break signal would end the process
        fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        held_ = fd_ >= 0 && ::fcntl(fd_, F_SETLEASE, F_WRLCK) == 0;
    }
    ~OpenBarrier()
    {
        release();
        std::signal(SIGIO, previous_);
    }
    bool held() const { return held_; }
    bool someoneWaits() const { return held_ && ::fcntl(fd_, F_GETLEASE) != F_WRLCK; }
    void release()
    {
        if (fd_ < 0)
            return;
        if (held_)
            ::fcntl(fd_, F_SETLEASE, F_UNLCK);
        ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
    bool held_ = false;
    void (*previous_)(int) = SIG_DFL;
};

std::string gioTrash()
{
    return listing({"dbus-run-session", "--", "gio", "list", "-a", "trash::orig-path", "trash://"});
}

} // namespace

TEST(CleanupScreen, TextsRowsAndButtonsFollowTheQueueAndTheWork)
{
    CleanupScreenFixture f;
    ASSERT_TRUE(f.scan(f.work));
    f.app().setSection(AppSection::cleanup);
    CleanupScreen& screen = f.screen();

    struct Step {
        const char* what;
        std::function<void()> act;
        bool empty;
        QStringList statuses; // the status column, by row
        bool move;
        bool removeAll;
    };
    const QString duplicate = CleanupScreen::duplicateNote();
    const QString link = QString::fromUtf8(kRefusedLink);
    const std::vector<Step> steps = {
        {"nothing staged", [] {}, true, {}, false, false},
        {"a plain file", [&] { f.stage(f.a); }, false, {QString()}, true, true},
        {"a duplicate that keeps another copy",
         [&] {
             CleanupEntry entry = CleanupEntry::stage(f.node(f.b), *f.app().session().scan(), "Duplicate",
                                                      CleanupPolicy{f.home()});
             entry.retainedCopies.emplace(f.kept, f.node(f.kept).identity);
             f.flow().addToQueue({entry});
         },
         false, {QString(), duplicate}, true, true},
        {"a file that became a link after staging",
         [&] {
             f.stage(f.p);
             f.tree().remove("home/work/p.txt");
             f.tree().symlink(f.a, "home/work/p.txt");
             Q_EMIT f.flow().changed(); // the screen asks the policy again when the queue is shown
         },
         false, {QString(), duplicate, link}, true, true},
        {"the review is open",
         [&] { ASSERT_TRUE(f.openReview()); },
         false, {QString(), duplicate, link}, false, true},
        {"the review is cancelled",
         [&] { f.window->reviewDialog()->reject(); },
         false, {QString(), duplicate, link}, true, true},
        {"everything removed", [&] { QTest::mouseClick(screen.removeAllButton(), Qt::LeftButton); }, true, {},
         false, false},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        step.act();
        ASSERT_TRUE(waitUntil([&] { return !f.flow().cleaning(); }));
        EXPECT_EQ(labels(&screen).contains(QStringLiteral("Cleanup is empty")), step.empty);
        EXPECT_EQ(labels(&screen).contains(QStringLiteral("Right-click a file or choose Add to Cleanup.")), step.empty);
        EXPECT_EQ(button(&screen, QStringLiteral("Browse files")) != nullptr, step.empty);
        EXPECT_EQ(column(screen.queueList(), 3), step.statuses);
        EXPECT_EQ(screen.moveButton()->isEnabled(), step.move);
        EXPECT_EQ(screen.removeAllButton()->isEnabled(), step.removeAll);
        EXPECT_TRUE(labels(&screen).contains(ToolWidgets::bytes(f.flow().queueBytes())));
    }
    // Files stay where they are.
    for (const std::string& path : {f.a, f.b, f.kept})
        EXPECT_TRUE(exists(path)) << path;

    // The empty state's button goes to the files.
    ASSERT_TRUE(click(&screen, QStringLiteral("Browse files")));
    EXPECT_EQ(f.app().section(), AppSection::explore);
}

TEST(CleanupScreen, AQueueKeptFromAnEarlierRunCanBeReviewedWithoutAScan)
{
    CleanupScreenFixture f;
    ASSERT_TRUE(f.scan(f.work));
    f.stage(f.a);
    f.stage(f.b);
    // The next start of the app: the queue comes back from the state folder, with no scan.
    f.window.reset();
    f.fixture.makeModel();
    f.window = std::make_unique<MainWindow>(f.app());
    f.window->show();
    f.app().setSection(AppSection::cleanup);
    CleanupScreen& screen = f.screen();
    EXPECT_FALSE(f.app().session().scan());
    EXPECT_EQ(column(screen.queueList(), 0), (QStringList{QStringLiteral("a.txt"), QStringLiteral("b.txt")}));
    ASSERT_TRUE(screen.moveButton()->isEnabled());

    // Each row removes itself, by its accessible name, and nothing else.
    QAbstractButton* remove = rowButton(screen.queueList(), 0, 4);
    ASSERT_TRUE(remove);
    EXPECT_EQ(remove->accessibleName(), QStringLiteral("Remove a.txt from Cleanup"));
    QTest::mouseClick(remove, Qt::LeftButton);
    EXPECT_EQ(column(screen.queueList(), 0), QStringList{QStringLiteral("b.txt")});
    EXPECT_TRUE(exists(f.a));

    ASSERT_TRUE(f.openReview());
    EXPECT_EQ(f.window->reviewDialog()->windowTitle(), QStringLiteral("Move 1 item to Trash?"));
}

TEST(CleanupScreen, ACancelDuringTheBackupGivesTheToastAndLosesNothing)
{
    CleanupScreenFixture f;
    const std::string big = f.tree().file("home/work/big.bin", 3 << 20);
    const std::string backups = f.tree().folder("backups");
    ASSERT_TRUE(f.scan(f.work));
    f.stage(big);
    f.stage(f.a);
    f.app().notices().clearToast();
    f.app().setSection(AppSection::cleanup);
    CleanupScreen& screen = f.screen();
    ASSERT_TRUE(f.openReview());
    CleanupReviewDialog& review = *f.window->reviewDialog();
    review.backupToggle()->setChecked(true);
    EXPECT_EQ(review.confirmButton()->text(), QStringLiteral("Back up && Move to Trash…"));
    f.fixture.nextFolder = backups;

    OpenBarrier barrier(big);
    if (!barrier.held())
        GTEST_SKIP() << "this file system gives no leases";
    QTest::mouseClick(review.confirmButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return barrier.someoneWaits(); }));
    ASSERT_TRUE(waitUntil([&] {
        return f.flow().cleanupProgress() && f.flow().cleanupProgress()->phase == CleanupPhase::backingUp;
    }));
    ASSERT_TRUE(f.fixture.lastRequest);
    EXPECT_EQ(f.fixture.lastRequest->title, QStringLiteral("Choose a backup folder"));

    // The working card, with its Cancel still active while copying.
    ProgressCard* card = screen.progressCard();
    EXPECT_TRUE(card->isVisibleTo(f.window.get()));
    EXPECT_EQ(card->title(), QStringLiteral("Preparing cleanup…"));
    EXPECT_EQ(card->detail(), QString::fromStdString(f.flow().cleanupProgress()->message));
    EXPECT_FALSE(screen.moveButton()->isEnabled());
    EXPECT_FALSE(screen.removeAllButton()->isEnabled());
    ASSERT_TRUE(card->cancelButton()->isEnabled());
    QTest::mouseClick(card->cancelButton(), Qt::LeftButton);
    barrier.release();
    ASSERT_TRUE(waitUntil([&] { return !f.flow().cleaning(); }));

    EXPECT_FALSE(card->isVisibleTo(f.window.get()));
    const QStringList shown = labels(f.window.get());
    EXPECT_TRUE(shown.contains(QStringLiteral("Cleanup cancelled"))) << shown.join(u'|').toStdString();
    EXPECT_TRUE(shown.contains(QStringLiteral("Nothing was moved to Trash.")));
    EXPECT_FALSE(f.app().notices().error());
    EXPECT_TRUE(exists(big) && exists(f.a));
    EXPECT_EQ(column(screen.queueList(), 0), (QStringList{QStringLiteral("a.txt"), QStringLiteral("big.bin")}));
    EXPECT_EQ(screen.receiptList()->topLevelItemCount(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(backups));
    EXPECT_TRUE(screen.moveButton()->isEnabled());
}

TEST(CleanupScreen, TheCancelOfTheWorkingCardIsInactiveWhileFilesMove)
{
    CleanupScreenFixture f;
    f.app().setSection(AppSection::cleanup);
    CleanupScreen& screen = f.screen();
    ASSERT_TRUE(f.scan(f.work));
    f.stage(f.a);
    f.app().preferences().setBackupBeforeCleanup(false);
    ASSERT_TRUE(f.openReview());
    // Every progress value the run reports passes through the card; the last phase disables Cancel.
    std::vector<std::pair<CleanupPhase, bool>> seen;
    QObject::connect(&f.flow(), &CleanupFlow::progressChanged, screen.progressCard(), [&] {
        if (const auto& progress = f.flow().cleanupProgress())
            seen.emplace_back(progress->phase, screen.progressCard()->cancelButton()->isEnabled());
    });
    QTest::mouseClick(f.window->reviewDialog()->confirmButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return !f.flow().cleaning() && !f.flow().receipts().empty(); }));
    ASSERT_FALSE(seen.empty());
    bool sawMove = false;
    for (const auto& [phase, enabled] : seen) {
        EXPECT_EQ(enabled, phase != CleanupPhase::movingToTrash) << int(phase);
        sawMove = sawMove || phase == CleanupPhase::movingToTrash;
    }
    EXPECT_TRUE(sawMove);
}

TEST(CleanupScreen, RestoreFromRecentlyTrashedPutsTheFileBackForEveryTrashClient)
{
    CleanupScreenFixture f;
    ASSERT_TRUE(f.scan(f.work));
    f.app().preferences().setBackupBeforeCleanup(false);
    f.stage(f.a);
    f.app().setSection(AppSection::cleanup);
    CleanupScreen& screen = f.screen();
    EXPECT_FALSE(labels(&screen).contains(QStringLiteral("Recently trashed")));
    ASSERT_TRUE(f.openReview());
    QTest::mouseClick(f.window->reviewDialog()->confirmButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return !f.flow().cleaning() && !f.flow().receipts().empty(); }));
    ASSERT_FALSE(exists(f.a));

    EXPECT_TRUE(labels(&screen).contains(QStringLiteral("Recently trashed")));
    EXPECT_TRUE(labels(&screen).contains(QStringLiteral("Files can be restored until Trash is emptied.")));
    ASSERT_EQ(column(screen.receiptList(), 0), QStringList{QStringLiteral("a.txt")});
    EXPECT_EQ(column(screen.receiptList(), 1), QStringList{QString::fromStdString(f.work)});
    EXPECT_NE(listing({"trash-list"}).find(f.a), std::string::npos);
    EXPECT_NE(gioTrash().find("trash::orig-path=" + f.a), std::string::npos);

    QAbstractButton* restore = rowButton(screen.receiptList(), 0, 4);
    ASSERT_TRUE(restore);
    EXPECT_EQ(restore->accessibleName(), QStringLiteral("Restore a.txt"));
    QTest::mouseClick(restore, Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return f.flow().receipts().empty(); }));
    EXPECT_TRUE(exists(f.a));
    EXPECT_EQ(readText(f.a), std::string(4000, 'x'));
    EXPECT_EQ(screen.receiptList()->topLevelItemCount(), 0);
    EXPECT_FALSE(labels(&screen).contains(QStringLiteral("Recently trashed")));
    EXPECT_EQ(f.app().notices().notice(), QStringLiteral("Restored a.txt. Rescan to update storage."));
    EXPECT_EQ(listing({"trash-list"}).find(f.a), std::string::npos);
    EXPECT_EQ(gioTrash().find("trash::orig-path=" + f.a), std::string::npos);
}
