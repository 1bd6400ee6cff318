#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <thread>

#include "CleanupTestSupport.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "support/Checks.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using namespace tarnbridge::test;

namespace {

bool canCreateIn(const std::string& folder)
{
    const std::string probe = folder + "/.probe";
    const int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    ::close(fd);
    ::unlink(probe.c_str());
    return true;
}

ProcessOutput cliClean(const std::string& path)
{
    return runProcess({cliPath(), "clean", path, "--yes", "--quiet"});
}

} // namespace

TEST(CleanupState, AFailedSaveKeepsMemoryAndTheNextSaveCatchesUp)
{
    AppFixture f;
    const std::string work = f.tree().folder("home/work");
    const std::string a = f.tree().file("home/work/a.txt", 100);
    const std::string b = f.tree().file("home/work/b.txt", 100);
    ASSERT_TRUE(scanned(f, work));
    CleanupFlow& flow = f.app().cleanup();
    Notices& notices = f.app().notices();
    flow.stage(records(f, {a}), std::nullopt, "Large file");
    ASSERT_EQ(paths(savedState(f).queue), std::vector<std::string>{a});

    {
        // Root writes anywhere; without those rights it meets the folder's mode like anyone.
        const WithoutAdminRights plainUser;
        f.tree().chmod("state", 0500);
        if (canCreateIn(f.stateDirectory)) {
            f.tree().chmod("state", 0700);
            GTEST_SKIP() << "this account writes into read-only folders";
        }
        flow.stage(records(f, {b}), std::nullopt, "Large file");
        ASSERT_TRUE(notices.error());
        EXPECT_TRUE(notices.error()->startsWith(QStringLiteral("Could not save cleanup state: ")));
        EXPECT_GT(notices.error()->size(), QStringLiteral("Could not save cleanup state: ").size());
        EXPECT_EQ(paths(flow.queue()), (std::vector<std::string>{a, b}));
        flow.removeFromQueue(a);
        EXPECT_EQ(paths(flow.queue()), std::vector<std::string>{b});
        EXPECT_EQ(paths(savedState(f).queue), std::vector<std::string>{a});
        f.tree().chmod("state", 0700);
    }

    // Both changes reach the file at the next save, the removal included.
    notices.setError(std::nullopt);
    flow.persistState();
    EXPECT_FALSE(notices.error());
    EXPECT_EQ(paths(savedState(f).queue), std::vector<std::string>{b});

    // A new start reads it back; a damaged file is named and the others still load.
    f.makeModel();
    EXPECT_EQ(paths(f.app().cleanup().queue()), std::vector<std::string>{b});
    EXPECT_FALSE(f.app().notices().error());
    f.tree().fileWithText("state/receipts.json", "[{\"id\": 1");
    f.makeModel();
    EXPECT_EQ(paths(f.app().cleanup().queue()), std::vector<std::string>{b});
    ASSERT_TRUE(f.app().notices().error());
    EXPECT_TRUE(f.app().notices().error()->startsWith(QStringLiteral("Trash history: ")));
}

TEST(CleanupState, TheAppAndTheCommandLineKeepEachOthersReceipts)
{
    AppFixture f;
    f.app().preferences().setBackupBeforeCleanup(false);
    const std::string work = f.tree().folder("home/work");
    const std::string mine = f.tree().file("home/work/mine.txt", 100);
    const std::string first = f.tree().file("home/other/first.txt", 100);
    const std::string second = f.tree().file("home/other/second.txt", 100);
    ASSERT_TRUE(scanned(f, work));
    CleanupFlow& flow = f.app().cleanup();
    flow.stage(records(f, {mine}), std::nullopt, "Large file");

    // The command line saves while the app holds its own state in memory.
    const ProcessOutput before = cliClean(first);
    ASSERT_EQ(before.exitCode, 0) << before.out << before.err;
    ASSERT_EQ(originals(savedState(f).receipts), std::vector<std::string>{first});
    EXPECT_TRUE(flow.receipts().empty());

    // Then both move files at once, each saving when its run ends.
    ASSERT_TRUE(reviewed(f));
    ProcessOutput during;
    std::thread cli([&] { during = cliClean(second); });
    flow.confirmTrash(*flow.cleanupRequest());
    const bool finished = waitUntil([&] { return !flow.cleaning(); });
    cli.join();
    ASSERT_TRUE(finished);
    ASSERT_EQ(during.exitCode, 0) << during.out << during.err;
    EXPECT_FALSE(f.app().notices().error());
    EXPECT_FALSE(exists(mine) || exists(first) || exists(second));

    // Whatever the order of the two saves, the file keeps all three, and the app has at least
    // its own and the one saved before its run.
    const std::vector<TrashReceipt> saved = savedState(f).receipts;
    EXPECT_EQ(saved.size(), 3u);
    std::set<std::string> everyPath;
    for (const std::string& path : originals(saved))
        everyPath.insert(path);
    EXPECT_EQ(everyPath, (std::set<std::string>{mine, first, second}));
    ASSERT_GE(flow.receipts().size(), 2u);
    EXPECT_EQ(flow.receipts().front().originalPath, mine);
    const std::vector<std::string> known = originals(flow.receipts());
    EXPECT_NE(std::find(known.begin(), known.end(), first), known.end());
    EXPECT_TRUE(flow.queue().empty());

    // The next save brings in the rest, and loses nothing of either side.
    flow.persistState();
    EXPECT_EQ(receiptIds(flow.receipts()), receiptIds(saved));
    EXPECT_EQ(receiptIds(savedState(f).receipts), receiptIds(saved));
}

TEST(CleanupState, ARunThatEndsAsTheAppClosesStillLeavesItsReceipts)
{
    AppFixture f;
    f.app().preferences().setBackupBeforeCleanup(false);
    const std::string work = f.tree().folder("home/work");
    const std::string a = f.tree().file("home/work/a.txt", 100);
    const std::string b = f.tree().file("home/work/b.txt", 100);
    ASSERT_TRUE(scanned(f, work));
    f.app().cleanup().stage(records(f, {a, b}), std::nullopt, "Large file");
    ASSERT_TRUE(reviewed(f));
    f.app().cleanup().confirmTrash(*f.app().cleanup().cleanupRequest());

    // No event is processed from here on, so the run's result never reaches the GUI thread
    // before the model goes.
    QDeadlineTimer deadline(20000);
    while ((exists(a) || exists(b)) && !deadline.hasExpired())
        std::this_thread::yield();
    ASSERT_FALSE(exists(a) || exists(b));
    f.makeModel();

    CleanupFlow& flow = f.app().cleanup();
    EXPECT_EQ(originals(flow.receipts()), (std::vector<std::string>{a, b}));
    EXPECT_TRUE(flow.queue().empty());
    EXPECT_EQ(originals(savedState(f).receipts), originals(flow.receipts()));
}
