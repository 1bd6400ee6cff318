#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "CleanupTestSupport.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "support/Checks.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using namespace tarnbridge::test;

namespace {

// Holds a write lease on a file: the next open of it, from any thread, waits until the lease
// goes, and the holder sees that someone waits. A barrier inside work we cannot reach.
class OpenBarrier {
public:
    explicit OpenBarrier(const std::string& path)
    {
        // The kernel tells the lease holder with SIGIO, whose default ends the process.
        previous_ = std::signal(SIGIO, SIG_IGN);
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

std::vector<std::string> folderContents(const std::string& folder)
{
    std::vector<std::string> out;
    for (const auto& item : std::filesystem::directory_iterator(folder))
        out.push_back(item.path().filename().string());
    return out;
}

} // namespace

TEST(CleanupCancel, StagingAndReviewPreparationStopWithoutATrace)
{
    AppFixture f;
    const std::string work = f.tree().folder("home/work");
    const std::string a = f.tree().file("home/work/a.txt", 100);
    const std::string b = f.tree().file("home/work/b.txt", 100);
    ASSERT_TRUE(scanned(f, work));
    CleanupFlow& flow = f.app().cleanup();
    Notices& notices = f.app().notices();
    flow.stage(records(f, {a}), std::nullopt, "Large file");
    const AppState before = savedState(f);
    notices.clearToast();

    // Cancelled before its result reaches the GUI thread, however far the work got.
    flow.stagePaths({b}, "Selection");
    ASSERT_TRUE(flow.staging());
    flow.cancelStaging();
    ASSERT_TRUE(waitUntil([&] { return !flow.staging(); }));
    EXPECT_EQ(notices.notice(), QStringLiteral("Staging cancelled."));
    EXPECT_FALSE(notices.error());
    EXPECT_FALSE(notices.toast());
    EXPECT_EQ(paths(flow.queue()), std::vector<std::string>{a});
    EXPECT_EQ(paths(savedState(f).queue), paths(before.queue));
    EXPECT_TRUE(f.app().canClean());

    // A new scan cancels a staging that runs.
    flow.stagePaths({b}, "Selection");
    ASSERT_TRUE(flow.staging());
    f.app().session().startScan(work);
    ASSERT_TRUE(waitUntil([&] { return !flow.staging() && !f.app().scanning(); }));
    EXPECT_EQ(paths(flow.queue()), std::vector<std::string>{a});

    // The review's preparation, likewise.
    flow.requestCleanup();
    ASSERT_TRUE(flow.cleaning());
    ASSERT_TRUE(flow.cleanupProgress());
    EXPECT_EQ(flow.cleanupProgress()->phase, CleanupPhase::checking);
    flow.cancelCleanup();
    ASSERT_TRUE(waitUntil([&] { return !flow.cleaning(); }));
    EXPECT_FALSE(flow.cleanupRequest());
    EXPECT_FALSE(flow.cleanupProgress());
    EXPECT_FALSE(notices.error());
    EXPECT_EQ(paths(flow.queue()), std::vector<std::string>{a});
    EXPECT_TRUE(exists(a) && exists(b));

    // The flag of a finished run does not reach the next one.
    ASSERT_TRUE(reviewed(f));
    EXPECT_EQ(paths(flow.cleanupRequest()->entries), std::vector<std::string>{a});
}

TEST(CleanupCancel, ACancelWhileBackingUpMovesNothingAndKeepsTheQueue)
{
    AppFixture f;
    const std::string work = f.tree().folder("home/work");
    const std::string big = f.tree().file("home/work/big.bin", 3 << 20);
    const std::string small = f.tree().file("home/work/small.txt", 10);
    const std::string backups = f.tree().folder("backups");
    ASSERT_TRUE(scanned(f, work));
    CleanupFlow& flow = f.app().cleanup();
    Notices& notices = f.app().notices();
    flow.stage(records(f, {big, small}), std::nullopt, "Large file");
    ASSERT_TRUE(reviewed(f));
    ASSERT_TRUE(f.app().preferences().backupBeforeCleanup());
    f.nextFolder = backups;

    // The backup is the first to open the file: it waits there, in its own phase.
    OpenBarrier barrier(big);
    if (!barrier.held())
        GTEST_SKIP() << "this file system gives no leases";
    flow.confirmTrash(*flow.cleanupRequest());
    ASSERT_TRUE(flow.cleaning());
    ASSERT_TRUE(waitUntil([&] { return barrier.someoneWaits(); }));
    ASSERT_TRUE(waitUntil([&] {
        return flow.cleanupProgress() && flow.cleanupProgress()->phase == CleanupPhase::backingUp;
    }));
    flow.cancelCleanup();
    barrier.release();
    ASSERT_TRUE(waitUntil([&] { return !flow.cleaning(); }));

    EXPECT_FALSE(notices.error());
    ASSERT_TRUE(notices.toast());
    EXPECT_EQ(notices.toast()->title, QStringLiteral("Cleanup cancelled"));
    EXPECT_EQ(notices.toast()->detail, QStringLiteral("Nothing was moved to Trash."));
    EXPECT_FALSE(notices.toast()->action);
    EXPECT_TRUE(exists(big) && exists(small));
    EXPECT_EQ(paths(flow.queue()), (std::vector<std::string>{big, small}));
    EXPECT_EQ(paths(savedState(f).queue), paths(flow.queue()));
    EXPECT_TRUE(flow.receipts().empty());
    EXPECT_TRUE(flow.backups().empty());
    // The unfinished copy is gone too.
    EXPECT_TRUE(folderContents(backups).empty());
    // The scan is as good as before.
    EXPECT_FALSE(f.app().session().isHistorical());
    EXPECT_TRUE(f.app().canClean());
}
