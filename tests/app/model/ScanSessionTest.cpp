#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>

#include "AppFixture.h"
#include "Gate.h"
#include "app/model/ExploreState.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "scan/DiskScanner.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using tarnbridge::test::AppFixture;
using tarnbridge::test::Gate;
using tarnbridge::test::waitUntil;

namespace {

const QString kCancelledFirst = QStringLiteral("Scan cancelled. Choose a location to start again.");
const QString kCancelledRescan = QStringLiteral("Scan cancelled. Your previous result is still available.");

// A scanner that walks for real and sends a last progress record, but whose run number
// `holdBeforeRun` first waits at `before`.
struct HeldScanner {
    Gate before;
    int holdBeforeRun = 0;
    std::atomic<int> runs{0};

    AppServices services()
    {
        AppServices s;
        s.scan = [this](const std::string& root, const CancellationFlag& flag, ScanNavigation* navigation,
                        const ScanProgressCallback& progress) {
            if (runs.fetch_add(1) == holdBeforeRun)
                before.hold();
            ScanResult result = DiskScanner::scan(root, flag, navigation, progress);
            ScanProgress last;
            last.path = root;
            progress(last);
            return result;
        };
        return s;
    }
};

// Lets every scan worker end and every delivery it queued run.
void drain(AppModel& app)
{
    app.scanPool().waitForDone();
    tarnbridge::test::spin(50);
}

void scanAndWait(ScanSession& session, const std::string& root)
{
    session.startScan(root);
    ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));
}

} // namespace

TEST(ScanSession, ARealScanRunsFromStartToAnInstalledResult)
{
    AppFixture f;
    const std::string root = f.tree().folder("home/work");
    f.tree().file("home/work/a.bin", 5000);
    f.tree().file("home/work/sub/b.bin", 300);
    ScanSession& session = f.app().session();
    f.app().explore().setStorageView(StorageView::table); // the live screens cannot show a table
    session.startScan(root);
    EXPECT_TRUE(session.scanning());
    EXPECT_EQ(session.scanRootName(), QStringLiteral("work"));
    EXPECT_EQ(f.app().explore().storageView(), StorageView::treemap);
    ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));
    ASSERT_TRUE(session.scan());
    EXPECT_EQ(session.scan()->rootPath(), root);
    EXPECT_EQ(session.focus()->path, root);
    EXPECT_FALSE(session.isHistorical());
    EXPECT_FALSE(f.app().notices().error());
    EXPECT_TRUE(f.app().notices().notice()->startsWith(QStringLiteral("Scan complete — ")));
    EXPECT_TRUE(f.app().notices().notice()->endsWith(QStringLiteral(" seconds.")));
    EXPECT_EQ(f.app().preferences().recent(), QStringList{QString::fromStdString(root)});
    EXPECT_EQ(f.app().explore().currentChildren().size(), 2u);
    EXPECT_TRUE(f.app().canClean());
}

TEST(ScanSession, CancellingTheFirstScanAndARescanSayWhatIsLeft)
{
    HeldScanner scanner;
    AppFixture f(scanner.services());
    const std::string root = f.tree().folder("home/work");
    f.tree().file("home/work/a.bin", 10);
    ScanSession& session = f.app().session();

    session.startScan(root);
    ASSERT_TRUE(waitUntil([&] { return scanner.before.reached(); }));
    session.cancelScan();
    EXPECT_FALSE(session.scanning());
    EXPECT_EQ(f.app().notices().notice(), kCancelledFirst);
    scanner.before.open();
    drain(f.app());
    EXPECT_FALSE(session.scan());
    EXPECT_EQ(f.app().notices().notice(), kCancelledFirst);

    scanAndWait(session, root);
    ASSERT_TRUE(session.scan());
    const QUuid installed = session.scan()->id();
    session.focusOn(*session.scan()->node(root + "/a.bin"));
    session.startScan(root);
    session.cancelScan();
    drain(f.app());
    EXPECT_EQ(f.app().notices().notice(), kCancelledRescan);
    ASSERT_TRUE(session.scan());
    EXPECT_EQ(session.scan()->id(), installed);
    EXPECT_EQ(session.selection(), root + "/a.bin");
}

TEST(ScanSession, WhatArrivesAfterACancelChangesNothing)
{
    AppFixture f;
    const std::string root = f.tree().folder("home/first");
    f.tree().file("home/first/a.bin", 10);
    ScanSession& session = f.app().session();
    // The walk ends and its progress and result wait in the queue; the cancel comes first.
    session.startScan(root);
    f.app().scanPool().waitForDone();
    session.cancelScan();
    drain(f.app());
    EXPECT_FALSE(session.scan());
    EXPECT_FALSE(session.scanProgress());
    EXPECT_FALSE(session.scanning());
    EXPECT_EQ(f.app().notices().notice(), kCancelledFirst);
}

TEST(ScanSession, ASecondStartNeverInstallsTheFirst)
{
    HeldScanner scanner;
    scanner.holdBeforeRun = 1;
    AppFixture f(scanner.services());
    const std::string first = f.tree().folder("home/first");
    const std::string second = f.tree().folder("home/second");
    ScanSession& session = f.app().session();
    session.startScan(first);
    f.app().scanPool().waitForDone(); // the first run's records are queued
    session.startScan(second);
    ASSERT_TRUE(waitUntil([&] { return scanner.before.reached(); }));
    tarnbridge::test::spin(100);
    EXPECT_FALSE(session.scan());
    EXPECT_FALSE(session.scanProgress()); // the second run has sent nothing yet
    EXPECT_TRUE(session.scanning());
    scanner.before.open();
    ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));
    ASSERT_TRUE(session.scan());
    EXPECT_EQ(session.scan()->rootPath(), second);
    EXPECT_EQ(f.app().preferences().recent(), QStringList{QString::fromStdString(second)});
}

TEST(ScanSession, BrowsingDuringAScanOpensTheResultThereOrAtTheRootWhenTheFolderWent)
{
    for (const bool removeBeforeTheEnd : {false, true}) {
        HeldScanner scanner;
        AppFixture f(scanner.services());
        const std::string root = f.tree().folder("home/work");
        f.tree().file("home/work/sub/deep/x.bin", 10);
        ScanSession& session = f.app().session();
        session.startScan(root);
        ASSERT_TRUE(waitUntil([&] { return scanner.before.reached(); }));

        session.browseLocation(root + "/sub");
        EXPECT_EQ(session.liveFocusPath(), root + "/sub");
        EXPECT_EQ(session.displayedFolderPath(), root + "/sub");
        EXPECT_TRUE(session.canGoUp());
        session.browseLocation("/somewhere/else");
        EXPECT_EQ(f.app().notices().notice(), QStringLiteral("This folder is outside the scan in progress."));
        EXPECT_EQ(session.liveFocusPath(), root + "/sub");
        if (removeBeforeTheEnd)
            std::filesystem::remove_all(root + "/sub");
        scanner.before.open();
        ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));

        const std::string expected = removeBeforeTheEnd ? root : root + "/sub";
        EXPECT_EQ(session.focus()->path, expected) << removeBeforeTheEnd;
        EXPECT_EQ(session.navigation().current, expected);
        if (!removeBeforeTheEnd) {
            // The path through the running scan survives: back leads to the root.
            session.goBack();
            EXPECT_EQ(session.focus()->path, root);
        }
    }
}

TEST(ScanSession, MovingUpBackAndAroundStopsAtTheEdges)
{
    HeldScanner scanner;
    AppFixture f(scanner.services());
    const std::string root = f.tree().folder("home/work");
    const std::string file = f.tree().file("home/work/sub/x.bin", 10);
    ScanSession& session = f.app().session();

    session.startScan(root);
    ASSERT_TRUE(waitUntil([&] { return scanner.before.reached(); }));
    session.goUp(); // at the live root
    EXPECT_EQ(session.displayedFolderPath(), root);
    EXPECT_FALSE(session.canGoUp());
    DiskNode aFile;
    aFile.path = file;
    session.focusOn(aFile); // a file is not selected during a scan
    EXPECT_FALSE(session.selection());
    EXPECT_FALSE(session.liveFocusPath());
    scanner.before.open();
    ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));

    session.goUp(); // at the root of the result
    EXPECT_EQ(session.focus()->path, root);
    session.browseLocation(root + "/sub");
    EXPECT_EQ(session.breadcrumbs().size(), 2u);
    session.select(root + "/sub");
    EXPECT_EQ(session.selected()->path, root + "/sub");
    EXPECT_EQ(session.focus()->path, root + "/sub");
    session.select(root + "/nowhere"); // not in the scan: the selection stays
    EXPECT_EQ(session.selection(), root + "/sub");
    session.focusOn(*session.scan()->node(file));
    EXPECT_EQ(session.selected()->path, file);
    EXPECT_EQ(session.focus()->path, root + "/sub"); // a file is selected, not focused
    session.goUp();
    EXPECT_EQ(session.focus()->path, root);
    session.goBack();
    EXPECT_EQ(session.focus()->path, root + "/sub");
    session.goForward();
    EXPECT_EQ(session.focus()->path, root);
    session.browseLocation(root + "/missing");
    EXPECT_EQ(f.app().notices().notice(),
              QStringLiteral("This folder isn’t in the current scan — use Scan Whole Disk or Scan Folder…."));
}

TEST(ScanSession, RootNamesAndTheFolderPanel)
{
    AppFixture f;
    ScanSession& session = f.app().session();
    const std::string home = f.fake.home();
    const std::string folder = f.tree().folder("home/Pictures");

    f.nextFolder = home;
    session.chooseFolder(false, true);
    ASSERT_TRUE(f.lastRequest);
    EXPECT_EQ(f.lastRequest->prompt, QStringLiteral("Scan folder"));
    EXPECT_EQ(session.scanRootName(), QStringLiteral("Home"));
    ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));

    EXPECT_EQ(session.displayName(*session.focus()), QStringLiteral("Home"));
    DiskNode whole;
    whole.path = "/";
    EXPECT_EQ(session.displayName(whole), QStringLiteral("System Disk"));
    EXPECT_EQ(session.displayName(*session.scan()->node(folder)), QStringLiteral("Pictures"));

    f.nextFolder = folder;
    session.chooseFolder(false, false); // open a folder of the current scan
    EXPECT_EQ(f.lastRequest->prompt, QStringLiteral("Open folder"));
    EXPECT_EQ(session.focus()->path, folder);

    f.nextFolder.reset(); // cancelled: nothing changes
    session.chooseFolder(false, true);
    EXPECT_FALSE(session.scanning());
    EXPECT_EQ(session.focus()->path, folder);
}

TEST(ScanSession, RecentRootsKeepTheSixNewestWithoutRepeats)
{
    AppFixture f;
    Preferences& preferences = f.app().preferences();
    for (int i = 1; i <= 7; ++i)
        preferences.addRecent(QStringLiteral("/r%1").arg(i));
    EXPECT_EQ(preferences.recent(), (QStringList{QStringLiteral("/r7"), QStringLiteral("/r6"), QStringLiteral("/r5"),
                                                 QStringLiteral("/r4"), QStringLiteral("/r3"), QStringLiteral("/r2")}));
    preferences.addRecent(QStringLiteral("/r4"));
    EXPECT_EQ(preferences.recent().first(), QStringLiteral("/r4"));
    EXPECT_EQ(preferences.recent().count(QStringLiteral("/r4")), 1);
    // Kept between runs.
    AppFixture& same = f;
    same.makeModel();
    EXPECT_EQ(same.app().preferences().recent().first(), QStringLiteral("/r4"));
}
