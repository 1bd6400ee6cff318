#include <gtest/gtest.h>

#include <QCoreApplication>

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <map>

#include "../model/AppFixture.h"
#include "../model/Gate.h"
#include "app/model/ApplicationsFlow.h"
#include "app/model/CleanupFlow.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/Notices.h"
#include "app/model/ScanSession.h"
#include "cleanup/CleanupService.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using tarnbridge::test::AppFixture;
using tarnbridge::test::Gate;
using tarnbridge::test::waitUntil;

namespace {

// The text of a message, for comparisons that print readably.
std::string text(const std::optional<QString>& message)
{
    return message ? message->toStdString() : std::string("(none)");
}

// A private machine: the fixture's home with its XDG folders, and below "sys" the package
// managers' folders, a data folder standing for /usr/share and a program folder for /usr/bin.
struct Machine {
    AppFixture f;

    InventoryPlaces places()
    {
        InventoryPlaces p = InventoryPlaces::fromEnvironment(
            {f.tree().path("sys/flatpak"), f.tree().path("sys/snapd"), f.tree().path("sys/snap")});
        p.dataDirs = {f.tree().path("sys/share")};
        p.programPath = {f.tree().path("sys/bin")};
        p.locale = "C";
        return p;
    }
    std::string home(const std::string& relative) const { return f.fake.home() + "/" + relative; }
    std::string program(const std::string& relative, std::int64_t size = 4096)
    {
        const std::string path = f.tree().file(relative, size);
        ::chmod(path.c_str(), 0755);
        return path;
    }
    void userEntry(const std::string& file, const std::string& body)
    {
        f.tree().fileWithText("home/.local/share/applications/" + file, "[Desktop Entry]\nType=Application\n" + body);
    }
    void systemEntry(const std::string& file, const std::string& body)
    {
        f.tree().fileWithText("sys/share/applications/" + file, "[Desktop Entry]\nType=Application\n" + body);
    }

    // Inkwell, unpacked in the home folder, with data of its own and a data folder that a
    // second app of the same name ties too; and data of an app that is gone.
    void install()
    {
        program("home/Apps/Inkwell/bin/inkwell-app", 200000);
        f.tree().file("home/Apps/Inkwell/share/brushes.dat", 1'200'000, 'b');
        userEntry("org.example.Inkwell.desktop", "Name=Inkwell\nExec=" + home("Apps/Inkwell/bin/inkwell-app") + "\n");
        program("sys/bin/inkwell-two");
        systemEntry("org.two.Inkwell.desktop", "Name=inkwell\nExec=inkwell-two\n");
        f.tree().file("home/.config/org.example.Inkwell/settings.ini", 3000);
        f.tree().file("home/.cache/org.example.Inkwell/thumbs", 9000);
        f.tree().file("home/.local/share/Inkwell/shared.db", 5000);
        f.tree().file("home/.config/com.acme.gone/state", 2000);
    }
};

const InstalledApplication* findApp(const ApplicationReport& report, const std::string& bundleID)
{
    for (const InstalledApplication& app : report.apps)
        if (app.bundleID == bundleID)
            return &app;
    return nullptr;
}

std::map<std::string, std::string> reasons(const std::vector<CleanupEntry>& entries)
{
    std::map<std::string, std::string> out;
    for (const CleanupEntry& entry : entries)
        out[entry.node.path] = entry.reason;
    return out;
}

// The real inventory, but with a flag of its own so that the held run ends with a report, and
// with a record and a marked report sent after the gate opens: only the generation token can
// keep them out.
struct HeldInventory : tarnbridge::test::HeldWork {

    ApplicationsFlow::Inspector inspector(InventoryPlaces places) const
    {
        return [state = state, real = ApplicationsFlow::inventoryOver(std::move(places))](
                   const CancellationFlag& flag, const ApplicationInventory::Progress& progress) {
            CancellationFlag own;
            ApplicationReport report = real(own, progress);
            state->gate.hold();
            state->sawCancel = flag.isCancelled();
            progress("Late", 99);
            report.issues.push_back("stale");
            state->done = true;
            return report;
        };
    }
};

} // namespace

TEST(ApplicationsFlow, ARunReportsTheAppsAndLeftoversAndAnUninstallOpensItsReview)
{
    Machine m;
    m.install();
    ApplicationsFlow& apps = m.f.app().applications();
    std::atomic<int> runs{0};
    apps.setInspector([&runs, real = ApplicationsFlow::inventoryOver(m.places())](
                          const CancellationFlag& flag, const ApplicationInventory::Progress& progress) {
        ++runs;
        return real(flag, progress);
    });
    QStringList lines;
    QObject context;
    QObject::connect(&apps, &ApplicationsFlow::progressChanged, &context, [&] { lines << apps.appProgress(); });

    apps.inspectApplications();
    EXPECT_TRUE(apps.inspectingApps());
    EXPECT_EQ(apps.appProgress(), QStringLiteral("Discovering applications…"));
    apps.inspectApplications(); // under way: starts nothing
    ASSERT_TRUE(waitUntil([&] { return !apps.inspectingApps(); }));
    EXPECT_EQ(runs, 1);
    ASSERT_TRUE(apps.appReport());
    EXPECT_TRUE(apps.appProgress().isEmpty());
    EXPECT_TRUE(lines.contains(QStringLiteral("Inkwell · 0 apps inspected")) ||
                lines.contains(QStringLiteral("Inkwell · 1 apps inspected")))
        << lines.join(u'\n').toStdString();
    const ApplicationReport report = *apps.appReport();
    const InstalledApplication* ink = findApp(report, "org.example.Inkwell");
    ASSERT_NE(ink, nullptr) << ::testing::PrintToString(report.issues);
    ASSERT_EQ(ink->path, m.home("Apps/Inkwell"));
    ASSERT_EQ(report.orphans.size(), 1u);
    EXPECT_EQ(report.orphans.front().bundleID, "com.acme.gone");

    apps.setSelectedApp(ink->path);
    ASSERT_NE(apps.selectedApplication(), nullptr);
    EXPECT_EQ(apps.selectedApplication()->bundleID, "org.example.Inkwell");

    // The bundle and the app's own data go; the folder the other Inkwell ties too stays.
    const std::map<std::string, std::string> expected{
        {m.home("Apps/Inkwell"), "Uninstall Inkwell"},
        {m.home(".config/org.example.Inkwell"), "Inkwell · Settings"},
        {m.home(".cache/org.example.Inkwell"), "Inkwell · Cache"},
    };
    EXPECT_EQ(reasons(ApplicationsFlow::cleanupEntries(*ink, m.f.app().services().home)), expected);

    apps.uninstall(*ink);
    CleanupFlow& cleanup = m.f.app().cleanup();
    ASSERT_TRUE(waitUntil([&] { return cleanup.cleanupRequest().has_value(); }));
    EXPECT_EQ(cleanup.cleanupRequest()->uninstallName, QStringLiteral("Inkwell"));
    EXPECT_EQ(reasons(cleanup.cleanupRequest()->entries), expected);
    EXPECT_TRUE(cleanup.cleanupRequest()->blocked.empty());
    cleanup.dismissReview();

    // What follows a finished uninstall: the list starts over.
    apps.afterUninstall();
    EXPECT_FALSE(apps.appReport());
    EXPECT_FALSE(apps.selectedApp());
    EXPECT_TRUE(apps.inspectingApps());
    ASSERT_TRUE(waitUntil([&] { return !apps.inspectingApps(); }));
    EXPECT_EQ(runs, 2);
    ASSERT_TRUE(apps.appReport());
    EXPECT_NE(findApp(*apps.appReport(), "org.example.Inkwell"), nullptr);

    // A leftover goes to the queue as it is, with its own scan.
    apps.addLeftoverToCleanup(apps.appReport()->orphans.front());
    ASSERT_EQ(cleanup.queue().size(), 1u);
    EXPECT_EQ(cleanup.queue().front().node.path, m.home(".config/com.acme.gone"));
    EXPECT_EQ(cleanup.queue().front().reason, "Possible leftover · verify ownership");
}

TEST(ApplicationsFlow, AnUninstallThatCannotBePreparedSaysWhyAndOpensNoReview)
{
    Machine m;
    ApplicationsFlow& apps = m.f.app().applications();
    const std::string home = m.f.app().services().home;
    CancellationFlag flag;

    InstalledApplication unmeasured;
    unmeasured.name = "Ghost";
    unmeasured.path = m.home("Apps/Ghost");
    apps.uninstall(unmeasured);
    EXPECT_EQ(text(m.f.app().notices().error()), "The app bundle could not be measured.");
    EXPECT_FALSE(m.f.app().cleaning());

    // One item that the policy refuses stops the whole preparation.
    m.f.tree().file("home/Apps/Vault/vault", 100);
    m.f.tree().file("home/.password-store/vault/key", 100);
    InstalledApplication vault;
    vault.name = "Vault";
    vault.path = m.home("Apps/Vault");
    vault.bundleScan = ApplicationInventory::scanItem(vault.path, flag);
    const ScanResult item = ApplicationInventory::scanItem(m.home(".password-store/vault"), flag);
    vault.support.push_back({*item.root(), item, kMatchIdentifier, "Settings", false});
    m.f.app().notices().setError(std::nullopt);
    apps.uninstall(vault);
    EXPECT_EQ(text(m.f.app().notices().error()), kRefusedProtected);
    // A review being prepared would hold the cleanup lock from the call on.
    EXPECT_FALSE(m.f.app().cleaning());
    EXPECT_FALSE(m.f.app().cleanup().cleanupRequest());
    EXPECT_THROW(ApplicationsFlow::cleanupEntries(vault, home), TarnbridgeError);

    // Shared, the same item is left out and the bundle goes alone.
    vault.support.front().isShared = true;
    EXPECT_EQ(reasons(ApplicationsFlow::cleanupEntries(vault, home)),
              (std::map<std::string, std::string>{{vault.path, "Uninstall Vault"}}));
}

TEST(ApplicationsFlow, AKeptDuplicateCopyInsideTheAppIsProtectedDuringItsUninstall)
{
    Machine m;
    m.install();
    const std::string keptCopy = m.home("Apps/Inkwell/share/brushes.dat");
    const std::string extra = m.f.tree().file("home/Downloads/brushes.dat", 1'200'000, 'b');
    ScanSession& session = m.f.app().session();
    session.startScan(m.f.fake.home());
    ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));
    DuplicateSearch& search = m.f.app().duplicates();
    search.findDuplicates(std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return !search.findingDuplicates(); }));
    ASSERT_TRUE(search.duplicateReport());
    ASSERT_EQ(search.duplicateReport()->groups.size(), 1u);
    search.stageDuplicates(search.duplicateReport()->groups.front(), keptCopy);
    CleanupFlow& cleanup = m.f.app().cleanup();
    ASSERT_EQ(cleanup.queue().size(), 1u);
    ASSERT_EQ(cleanup.queue().front().node.path, extra);

    ApplicationsFlow& apps = m.f.app().applications();
    apps.setInspector(ApplicationsFlow::inventoryOver(m.places()));
    apps.inspectApplications();
    ASSERT_TRUE(waitUntil([&] { return !apps.inspectingApps(); }));
    ASSERT_TRUE(apps.appReport());
    const InstalledApplication* ink = findApp(*apps.appReport(), "org.example.Inkwell");
    ASSERT_NE(ink, nullptr);
    apps.uninstall(*ink);
    ASSERT_TRUE(waitUntil([&] { return cleanup.cleanupRequest().has_value(); }));
    const std::vector<CleanupEntry>& entries = cleanup.cleanupRequest()->entries;
    ASSERT_FALSE(entries.empty());
    for (const CleanupEntry& entry : entries)
        EXPECT_EQ(entry.retainedCopies.count(keptCopy), 1u) << entry.node.path;
    // The move refuses: the copy kept for the queued extra lies in the bundle that would go.
    EXPECT_TRUE(CleanupService::hasRetainedCopyConflict(entries));
}

TEST(ApplicationsFlow, AStaleRunChangesNothing)
{
    Machine m;
    m.install();
    ApplicationsFlow& apps = m.f.app().applications();
    // The held run keeps one worker; the next run needs another.
    m.f.app().workPool().setMaxThreadCount(std::max(4, m.f.app().workPool().maxThreadCount()));

    HeldInventory held;
    apps.setInspector(held.inspector(m.places()));
    apps.inspectApplications();
    ASSERT_TRUE(waitUntil([&] { return held.state->gate.reached(); }));
    apps.cancelApplications();
    EXPECT_FALSE(apps.inspectingApps());
    EXPECT_TRUE(apps.appProgress().isEmpty());

    // A new run, with one more app, ends while the cancelled one is still held.
    m.program("sys/bin/quill");
    m.systemEntry("org.example.Quill.desktop", "Name=Quill\nExec=quill\n");
    apps.setInspector(ApplicationsFlow::inventoryOver(m.places()));
    apps.inspectApplications();
    ASSERT_TRUE(waitUntil([&] { return !apps.inspectingApps(); }));
    ASSERT_TRUE(apps.appReport());
    ASSERT_NE(findApp(*apps.appReport(), "org.example.Quill"), nullptr);
    const std::size_t count = apps.appReport()->apps.size();

    held.state->gate.open();
    m.f.app().workPool().waitForDone();
    QCoreApplication::sendPostedEvents();
    ASSERT_TRUE(held.state->done);
    EXPECT_TRUE(held.state->sawCancel);
    ASSERT_TRUE(apps.appReport());
    EXPECT_EQ(apps.appReport()->apps.size(), count);
    EXPECT_TRUE(std::find(apps.appReport()->issues.begin(), apps.appReport()->issues.end(), "stale") ==
                apps.appReport()->issues.end());
    EXPECT_TRUE(apps.appProgress().isEmpty());
    EXPECT_FALSE(apps.inspectingApps());
}
