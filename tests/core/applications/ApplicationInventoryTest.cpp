#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <thread>

#include "applications/ApplicationInventory.h"
#include "model/Errors.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::FakeHome;
using tarnbridge::test::TempTree;
using tarnbridge::test::WithoutAdminRights;

namespace {

// A whole fake machine: the home folder of FakeHome, and below "sys" the package managers'
// folders, one data folder standing for /usr/share and one program folder standing for /usr/bin.
class Inventory : public ::testing::Test {
protected:
    FakeHome fake;
    TempTree& tree = fake.tree();
    CancellationFlag flag;

    InventoryPlaces places() const
    {
        InventoryPlaces p = InventoryPlaces::fromEnvironment(
            {tree.path("sys/flatpak"), tree.path("sys/snapd"), tree.path("sys/snap")});
        p.dataDirs = {tree.path("sys/share")};
        p.programPath = {tree.path("sys/bin")};
        p.locale = "C";
        return p;
    }

    ApplicationReport inspect(ApplicationInventory inventory = ApplicationInventory())
    {
        return inventory.inspect(places(), flag);
    }

    // A desktop entry in one of the application folders, relative to the fake tree.
    void entry(const std::string& folder, const std::string& file, const std::string& body)
    {
        tree.fileWithText(folder + "/" + file, "[Desktop Entry]\nType=Application\n" + body);
    }
    void userEntry(const std::string& file, const std::string& body)
    {
        entry("home/.local/share/applications", file, body);
    }
    void systemEntry(const std::string& file, const std::string& body)
    {
        entry("sys/share/applications", file, body);
    }

    std::string program(const std::string& relative, std::int64_t size = 4096)
    {
        const std::string path = tree.file(relative, size);
        ::chmod(path.c_str(), 0755);
        return path;
    }

    std::string home(const std::string& relative) const { return fake.home() + "/" + relative; }
};

const InstalledApplication* findApp(const ApplicationReport& report, const std::string& bundleID)
{
    for (const auto& app : report.apps)
        if (app.bundleID == bundleID)
            return &app;
    return nullptr;
}

std::map<std::string, std::string> labels(const InstalledApplication& app)
{
    std::map<std::string, std::string> out;
    for (const auto& file : app.support)
        out[file.node.path] = file.category + " | " + file.match + (file.isShared ? " | shared" : "");
    return out;
}

std::vector<std::string> orphanIds(const ApplicationReport& report)
{
    std::vector<std::string> out;
    for (const auto& orphan : report.orphans)
        out.push_back(orphan.bundleID);
    std::sort(out.begin(), out.end());
    return out;
}

// What du -l would not double: each inode's blocks once, folders counting nothing of their own.
std::int64_t uniqueAllocated(const std::string& root)
{
    namespace fs = std::filesystem;
    std::set<std::pair<dev_t, ino_t>> seen;
    std::int64_t total = 0;
    if (!fs::is_directory(fs::symlink_status(root))) {
        struct stat st {};
        ::lstat(root.c_str(), &st);
        return std::int64_t(st.st_blocks) * 512;
    }
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
        struct stat st {};
        ::lstat(it->path().c_str(), &st);
        if (!S_ISDIR(st.st_mode) && seen.insert({st.st_dev, st.st_ino}).second)
            total += std::int64_t(st.st_blocks) * 512;
    }
    return total;
}

} // namespace

TEST_F(Inventory, EachTieLabelInItsSituation)
{
    program("home/Apps/Inkwell/bin/inkwell-app", 200000);
    program("home/Apps/Inkwell/share/brushes.dat", 50000);
    userEntry("org.example.Inkwell.desktop",
              "Name=Inkwell\nExec=" + home("Apps/Inkwell/bin/inkwell-app") + " %F\nStartupWMClass=Inky\n");
    // An unrelated app whose name ties nothing, so that only Inkwell's labels are in play.
    program("sys/bin/other");
    systemEntry("other.desktop", "Name=Other\nExec=other\n");

    tree.file("home/.config/org.example.Inkwell/settings.ini", 3000);
    tree.file("home/.cache/org.example.Inkwell.thumbs/a", 9000);
    tree.file("home/.cache/inkwell-app/b", 100);
    tree.file("home/.config/Inky", 10);
    tree.file("home/.local/share/INKWELL/lib.db", 7000);
    tree.file("home/.local/state/inkwell-app/log", 5);
    tree.file("home/.inkwell/rc", 10);
    tree.file("home/.inkwell-app", 20);
    tree.fileWithText("home/.config/autostart/org.example.Inkwell.desktop", "[Desktop Entry]\n");
    // Not tied: the name outside the folders where names count, near misses of identifiers.
    tree.file("home/.cache/inkwell/c", 100);
    tree.file("home/.config/org.example.InkwellPro/x", 100);
    tree.file("home/.config/inky", 100);
    tree.file("home/.local/state/Inkwell/x", 100);
    tree.file("home/.config/autostart/inkwell.desktop", 100);

    const ApplicationReport report = inspect();
    const InstalledApplication* ink = findApp(report, "org.example.Inkwell");
    ASSERT_NE(ink, nullptr) << ::testing::PrintToString(report.issues);
    EXPECT_EQ(ink->name, "Inkwell");
    EXPECT_EQ(ink->kind, ApplicationKind::home);
    EXPECT_EQ(ink->path, home("Apps/Inkwell")); // the program's folder above its bin
    EXPECT_EQ(ink->version, "—");
    const std::map<std::string, std::string> want{
        {home(".config/org.example.Inkwell"), "Settings | Bundle identifier"},
        {home(".cache/org.example.Inkwell.thumbs"), "Cache | Bundle identifier"},
        {home(".cache/inkwell-app"), "Cache | Bundle identifier"},
        {home(".config/Inky"), "Settings | Bundle identifier"}, // StartupWMClass
        {home(".local/share/INKWELL"), "Application Data | App name · verify ownership"},
        {home(".local/state/inkwell-app"), "State | Bundle identifier"},
        {home(".inkwell"), "Home Folder Data | App name · verify ownership"},
        {home(".inkwell-app"), "Home Folder Data | Bundle identifier"},
        {home(".config/autostart/org.example.Inkwell.desktop"), "Login Item | Bundle identifier"},
    };
    EXPECT_EQ(labels(*ink), want);
    // Largest first, and the footprint is the bundle plus every tied item.
    for (std::size_t i = 1; i < ink->support.size(); ++i)
        EXPECT_GE(ink->support[i - 1].node.allocatedSize, ink->support[i].node.allocatedSize);
    EXPECT_EQ(ink->support.front().node.path, home(".cache/org.example.Inkwell.thumbs"));
    std::int64_t supportTotal = 0;
    for (const auto& file : ink->support)
        supportTotal += uniqueAllocated(file.node.path);
    EXPECT_EQ(ink->supportBytes(), supportTotal);
    EXPECT_EQ(ink->bytes(), uniqueAllocated(home("Apps/Inkwell")) + supportTotal);
    const InstalledApplication* other = findApp(report, "other");
    ASSERT_NE(other, nullptr);
    EXPECT_TRUE(other->support.empty());
    EXPECT_EQ(other->bytes(), other->bundleScan.root()->allocatedSize);
    EXPECT_EQ(report.apps.front().bundleID, "org.example.Inkwell"); // largest footprint first
}

TEST_F(Inventory, KnownProductFoldersOutrankANameAndAreNeverTiedTwice)
{
    program("sys/bin/code");
    systemEntry("code.desktop", "Name=Code\nExec=code --unity-launch %F\n");
    program("sys/bin/firefox");
    systemEntry("firefox.desktop", "Name=Firefox Web Browser\nExec=firefox %u\n");
    tree.file("home/.config/Code/User/settings.json", 300);
    tree.file("home/.cache/mozilla/firefox/abc.default/cache2", 4000);
    tree.file("home/.mozilla/firefox/profiles.ini", 100);
    tree.file("home/.cache/mozilla/other", 100);

    const ApplicationReport report = inspect();
    const InstalledApplication* code = findApp(report, "code");
    const InstalledApplication* firefox = findApp(report, "firefox");
    ASSERT_NE(code, nullptr);
    ASSERT_NE(firefox, nullptr);
    // ~/.config/Code fits the name "Code" too; the known folder is the surer tie. No Cache/Code
    // exists, so none is listed.
    EXPECT_EQ(labels(*code), (std::map<std::string, std::string>{
                                 {home(".config/Code"), "Settings | Known product data directory"}}));
    EXPECT_EQ(labels(*firefox),
              (std::map<std::string, std::string>{
                  {home(".cache/mozilla/firefox"), "Cache | Known product data directory"},
                  {home(".mozilla"), "Home Folder Data | Known product data directory"}}));
}

TEST_F(Inventory, AnItemTwoAppsTieIsSharedByBoth)
{
    program("sys/bin/notes-gtk");
    program("sys/bin/notes-qt");
    program("sys/bin/solo");
    systemEntry("org.one.Notes.desktop", "Name=Notes\nExec=notes-gtk\n");
    systemEntry("org.two.Notes.desktop", "Name=notes\nExec=notes-qt\nStartupWMClass=solo\n");
    systemEntry("solo.desktop", "Name=Solo\nExec=solo\n");
    tree.file("home/.local/share/Notes/db", 1000);  // both by name
    tree.file("home/.config/solo/x", 10);           // by identifier for two apps
    tree.file("home/.config/org.one.Notes/x", 10);  // one app only

    const ApplicationReport report = inspect();
    const InstalledApplication* one = findApp(report, "org.one.Notes");
    const InstalledApplication* two = findApp(report, "org.two.Notes");
    const InstalledApplication* solo = findApp(report, "solo");
    ASSERT_TRUE(one && two && solo);
    const std::string shared = "Shared with another installed app | shared";
    EXPECT_EQ(labels(*one), (std::map<std::string, std::string>{
                                {home(".local/share/Notes"), "Application Data | " + shared},
                                {home(".config/org.one.Notes"), "Settings | Bundle identifier"}}));
    EXPECT_EQ(labels(*two), (std::map<std::string, std::string>{
                                {home(".local/share/Notes"), "Application Data | " + shared},
                                {home(".config/solo"), "Settings | " + shared}}));
    EXPECT_EQ(labels(*solo), (std::map<std::string, std::string>{{home(".config/solo"), "Settings | " + shared}}));
    // The item is measured once and counted in each footprint.
    auto notes = [&](const InstalledApplication& app) {
        return std::find_if(app.support.begin(), app.support.end(),
                            [&](const AppSupportFile& f) { return f.node.path == home(".local/share/Notes"); })
            ->scan.id();
    };
    EXPECT_EQ(notes(*one), notes(*two));
    EXPECT_EQ(one->supportBytes(), uniqueAllocated(home(".local/share/Notes")) +
                                       uniqueAllocated(home(".config/org.one.Notes")));
}

TEST_F(Inventory, LeftoversAreDataThatNoInstalledAppClaims)
{
    program("sys/bin/tool");
    systemEntry("org.example.Tool.desktop", "Name=Tool\nExec=tool\n");
    // Installed without a visible entry: a runtime, a command-line snap, a NoDisplay app.
    tree.folder("sys/flatpak/app/org.some.Runtime/current");
    tree.folder("sys/snap/clitool/1");
    systemEntry("org.quiet.Helper.desktop", "Name=Helper\nExec=tool --helper\nNoDisplay=true\n");

    tree.file("home/.var/app/org.gone.Editor/data/big", 20000);
    tree.file("home/.var/app/org.example.Tool/x", 10);      // tied, so no leftover
    tree.file("home/.var/app/org.some.Runtime/x", 10);      // installed
    tree.file("home/.var/app/org.quiet.Helper/x", 10);      // installed, hidden from menus
    tree.file("home/snap/gonesnap/common/x", 5000);
    tree.file("home/snap/clitool/x", 10);
    tree.file("home/.config/com.vendor.gone/x", 3000);
    tree.file("home/.cache/net.old.Viewer.thumbs/y", 1000);
    tree.file("home/.local/share/io.github.gone.App", 100);
    tree.file("home/.config/vendor.tool/x", 10);            // two pieces only
    tree.file("home/.config/com..gone/x", 10);              // empty pieces do not count
    tree.file("home/.config/com.tarnbridge.test/x", 10);    // our own
    tree.file("home/.config/org.example.Tool.backup/x", 10); // an installed id's extension
    tree.file("home/.local/state/com.vendor.gone/x", 10);   // not a leftover folder
    tree.file("home/.com.vendor.gone/x", 10);

    const ApplicationReport report = inspect();
    EXPECT_EQ(orphanIds(report), (std::vector<std::string>{"com.vendor.gone", "gonesnap", "io.github.gone.App",
                                                            "net.old.Viewer.thumbs", "org.gone.Editor"}));
    for (std::size_t i = 1; i < report.orphans.size(); ++i)
        EXPECT_GE(report.orphans[i - 1].node.allocatedSize, report.orphans[i].node.allocatedSize);
    EXPECT_EQ(report.orphans.front().node.path, home(".var/app/org.gone.Editor"));
    EXPECT_EQ(report.orphans.front().category, "App Sandbox Data");
    EXPECT_EQ(report.orphans.front().node.allocatedSize, uniqueAllocated(home(".var/app/org.gone.Editor")));
    const auto snapOrphan = std::find_if(report.orphans.begin(), report.orphans.end(),
                                         [](const OrphanCandidate& o) { return o.bundleID == "gonesnap"; });
    EXPECT_EQ(snapOrphan->category, "Snap Data");
    EXPECT_TRUE(snapOrphan->node.isDirectory);
    // The hidden helper is no listed application.
    EXPECT_EQ(findApp(report, "org.quiet.Helper"), nullptr);
    EXPECT_EQ(labels(*findApp(report, "org.example.Tool")),
              (std::map<std::string, std::string>{
                  {home(".var/app/org.example.Tool"), "App Sandbox Data | Bundle identifier"},
                  {home(".config/org.example.Tool.backup"), "Settings | Bundle identifier"}}));

    // With no applications at all, every such name is a leftover.
    tree.remove("sys/share/applications");
    const ApplicationReport empty = inspect();
    EXPECT_TRUE(empty.apps.empty());
    EXPECT_EQ(orphanIds(empty),
              (std::vector<std::string>{"com.vendor.gone", "gonesnap", "io.github.gone.App", "net.old.Viewer.thumbs",
                                        "org.example.Tool", "org.example.Tool.backup", "org.gone.Editor",
                                        "org.quiet.Helper"}));
}

TEST_F(Inventory, AFlatpakDeploymentCountsItsHardLinksOnce)
{
    const std::string deploy = "sys/flatpak/app/org.flat.Paint";
    program(deploy + "/x86_64/stable/aaa/files/bin/paint", 300000);
    tree.fileWithText(deploy + "/x86_64/stable/aaa/metadata", "[Application]\nname=org.flat.Paint\ncommand=paint\n");
    // The older deployment shares its unchanged files with the new one through hard links.
    tree.hardLink(deploy + "/x86_64/stable/aaa/files/bin/paint", deploy + "/x86_64/stable/bbb/files/bin/paint");
    tree.symlink("aaa", deploy + "/x86_64/stable/active");
    tree.symlink("x86_64/stable", deploy + "/current");
    entry("sys/flatpak/exports/share/applications", "org.flat.Paint.desktop",
          "Name=Paint\nExec=/usr/bin/flatpak run --branch=stable org.flat.Paint @@u %U @@\nX-Flatpak=org.flat.Paint\n");
    // A user installation of another app, found through the user's export folder.
    program("home/.local/share/flatpak/app/org.user.Clock/current/active/files/bin/clock", 8000);
    entry("home/.local/share/flatpak/exports/share/applications", "org.user.Clock.desktop",
          "Name=Clock\nExec=flatpak run org.user.Clock\n");
    tree.file("home/.var/app/org.flat.Paint/config/x", 100);
    tree.file("home/.config/flatpak/x", 100); // the launcher's name ties nothing
    // An export whose deployment is gone lists nothing.
    entry("sys/flatpak/exports/share/applications", "org.gone.App.desktop", "Name=Gone\nExec=flatpak run x\n");

    // The access time of the program inside the deployment is the last use.
    const std::string binary = tree.path(deploy + "/x86_64/stable/aaa/files/bin/paint");
    const struct timespec times[2] = {{1'700'000'500, 0}, {1'700'000'000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, binary.c_str(), times, 0), 0);

    const ApplicationReport report = inspect();
    const InstalledApplication* paint = findApp(report, "org.flat.Paint");
    const InstalledApplication* clock = findApp(report, "org.user.Clock");
    ASSERT_TRUE(paint && clock) << ::testing::PrintToString(report.issues);
    EXPECT_EQ(findApp(report, "org.gone.App"), nullptr);
    EXPECT_EQ(paint->kind, ApplicationKind::flatpak);
    EXPECT_EQ(paint->path, tree.path(deploy));
    struct stat st {};
    ::stat(binary.c_str(), &st);
    const std::int64_t once = std::int64_t(st.st_blocks) * 512;
    ASSERT_GT(once, 0);
    EXPECT_EQ(paint->bundleScan.root()->allocatedSize, uniqueAllocated(tree.path(deploy)));
    EXPECT_LT(paint->bundleScan.root()->allocatedSize, 2 * once);
    // Logical sizes count every name: both links of the program, the metadata, the two links.
    std::int64_t others = 0;
    for (const char* item : {"/x86_64/stable/aaa/metadata", "/x86_64/stable/active", "/current"}) {
        struct stat l {};
        ::lstat(tree.path(deploy + item).c_str(), &l);
        others += l.st_size;
    }
    EXPECT_EQ(paint->bundleScan.root()->logicalSize, 2 * 300000 + others);
    EXPECT_EQ(paint->lastUsed, 1'700'000'500);
    EXPECT_EQ(labels(*paint), (std::map<std::string, std::string>{
                                  {home(".var/app/org.flat.Paint"), "App Sandbox Data | Bundle identifier"}}));
    EXPECT_EQ(clock->path, home(".local/share/flatpak/app/org.user.Clock"));
    EXPECT_FALSE(clock->lastUsed.has_value()); // no metadata: no program to ask
    EXPECT_TRUE(clock->support.empty());
}

TEST_F(Inventory, SnapsAppImagesAndProgramsAreMeasuredAsTheirKindSays)
{
    tree.file("sys/snap/tool/42/bin/tool", 5000);
    tree.symlink("42", "sys/snap/tool/current");
    entry("sys/snapd/desktop/applications", "tool_tool.desktop",
          "Name=Tool\nExec=env BAMF_DESKTOP_FILE_HINT=/x/tool_tool.desktop " + tree.path("sys/snap/bin/tool") +
              " %U\n");
    tree.file("home/snap/tool/common/x", 300);
    const std::string image = program("home/Applications/Viewer-1.2-x86_64.AppImage", 70000);
    userEntry("viewer.desktop", "Name=Viewer\nExec=\"" + image + "\" %f\n");
    program("home/.local/bin/single", 600);
    userEntry("single.desktop", "Name=Single\nExec=" + home(".local/bin/single") + "\n");
    const std::string real = program("sys/bin/real-editor", 900);
    tree.symlink(real, "sys/bin/editor");
    systemEntry("editor.desktop", "Name=Editor\nExec=editor\n");
    const struct timespec times[2] = {{1'600'000'000, 0}, {1'600'000'100, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, real.c_str(), times, 0), 0); // read before it changed: no date
    systemEntry("missing.desktop", "Name=Missing\nExec=not-installed\n");
    systemEntry("tried.desktop", "Name=Tried\nExec=editor\nTryExec=not-installed\n");

    const ApplicationReport report = inspect();
    const InstalledApplication* snap = findApp(report, "tool_tool");
    ASSERT_NE(snap, nullptr) << ::testing::PrintToString(report.issues);
    EXPECT_EQ(snap->kind, ApplicationKind::snap);
    EXPECT_EQ(snap->path, tree.path("sys/snap/tool"));
    EXPECT_EQ(snap->version, "42");
    EXPECT_EQ(labels(*snap), (std::map<std::string, std::string>{{home("snap/tool"), "Snap Data | Bundle identifier"}}));

    const InstalledApplication* viewer = findApp(report, "viewer");
    ASSERT_NE(viewer, nullptr);
    EXPECT_EQ(viewer->kind, ApplicationKind::appImage);
    EXPECT_EQ(viewer->path, image);
    EXPECT_EQ(viewer->bundleScan.nodeCount(), 1u);
    EXPECT_EQ(viewer->bundleScan.root()->logicalSize, 70000);

    const InstalledApplication* single = findApp(report, "single");
    ASSERT_NE(single, nullptr);
    EXPECT_EQ(single->kind, ApplicationKind::home);
    EXPECT_EQ(single->path, home(".local/bin/single")); // its neighbours are other programs

    const InstalledApplication* editor = findApp(report, "editor");
    ASSERT_NE(editor, nullptr);
    EXPECT_EQ(editor->kind, ApplicationKind::system);
    EXPECT_EQ(editor->path, real); // the resolved executable alone
    EXPECT_FALSE(editor->lastUsed.has_value());
    EXPECT_EQ(findApp(report, "missing"), nullptr);
    EXPECT_EQ(findApp(report, "tried"), nullptr);
    EXPECT_TRUE(report.issues.empty()) << ::testing::PrintToString(report.issues);
}

TEST_F(Inventory, TheFirstEntryOfAnIdWinsAndHiddenOnesAreLeftOut)
{
    program("sys/bin/dup");
    userEntry("org.dup.App.desktop", "Name=Mine\nExec=dup\n");
    systemEntry("org.dup.App.desktop", "Name=System\nExec=dup --system\n");
    program("sys/bin/sysapp");
    userEntry("org.sys.App.desktop", "Name=Removed\nExec=sysapp\nHidden=true\n"); // the user deleted it
    systemEntry("org.sys.App.desktop", "Name=Sys\nExec=sysapp\n");
    systemEntry("org.quiet.App.desktop", "Name=Quiet\nExec=sysapp --quiet\nNoDisplay=true\n");
    program("sys/bin/vendortool");
    systemEntry("vendor/tool.desktop", "Name=Vendor Tool\nExec=vendortool\n"); // id "vendor-tool"
    tree.fileWithText("sys/share/applications/link.desktop", "[Desktop Entry]\nType=Link\nName=Site\nURL=x\n");
    tree.file("home/.local/share/applications/readme.txt", 10);
    // Snap's folder comes before the data folders.
    tree.folder("sys/snap/order/1");
    program("sys/bin/order");
    entry("sys/snapd/desktop/applications", "order.desktop", "Name=From snapd\nExec=" + tree.path("sys/bin/order") + "\n");
    systemEntry("order.desktop", "Name=From share\nExec=order\n");
    program("sys/bin/localised");
    systemEntry("localised.desktop", "Name=Inkpot\nName[de]=Tintenfass\nExec=localised\n");
    tree.file("home/.config/inkpot/x", 10);

    InventoryPlaces p = places();
    p.locale = "de_DE.UTF-8";
    const ApplicationReport report = ApplicationInventory().inspect(p, flag);
    std::map<std::string, std::string> names;
    for (const auto& app : report.apps)
        names[app.bundleID] = app.name;
    EXPECT_EQ(names, (std::map<std::string, std::string>{{"org.dup.App", "Mine"},
                                                         {"vendor-tool", "Vendor Tool"},
                                                         {"order", "From snapd"},
                                                         {"localised", "Tintenfass"}}));
    EXPECT_EQ(findApp(report, "org.dup.App")->entryPath, home(".local/share/applications/org.dup.App.desktop"));
    // The plain name still ties data named in the program's own language.
    EXPECT_EQ(labels(*findApp(report, "localised")),
              (std::map<std::string, std::string>{{home(".config/inkpot"), "Settings | App name · verify ownership"}}));
    EXPECT_TRUE(report.issues.empty()) << ::testing::PrintToString(report.issues);
}

TEST_F(Inventory, EntriesOfOneProgramAreOneApplicationWithAllTheirNames)
{
    program("sys/bin/office");
    systemEntry("office-writer.desktop", "Name=Writer\nExec=office --writer\n");
    systemEntry("office-calc.desktop", "Name=Calc\nExec=office --calc\n");
    tree.file("home/.cache/office-writer/x", 10);
    tree.file("home/.cache/office-calc/x", 10);
    const ApplicationReport report = inspect();
    ASSERT_EQ(report.apps.size(), 1u);
    EXPECT_EQ(report.apps[0].bundleID, "office-calc"); // files of a folder are read in name order
    EXPECT_EQ(report.apps[0].support.size(), 2u);
}

TEST_F(Inventory, MalformedAndUnreadableEntriesBecomeIssues)
{
    program("sys/bin/good");
    userEntry("broken.desktop", "Name=Broken\nthis line is junk\n");
    systemEntry("broken.desktop", "Name=Good\nExec=good\n"); // a broken file hides nothing
    tree.fileWithText("home/.local/share/applications/nogroup.desktop", "[Something]\nName=x\n");
    userEntry("noname.desktop", "Exec=good\n");
    tree.fileWithText("home/.local/share/applications/binary.desktop", std::string("\x7f" "ELF\0\0", 6));
    // A name that is not UTF-8 is read and listed as it is.
    program("sys/bin/cafe");
    userEntry("caf\xe9.desktop", "Name=Caf\xe9\nExec=cafe\n");
    tree.symlink("nowhere.desktop", "home/.local/share/applications/dangling.desktop");

    const ApplicationReport report = inspect();
    const std::string apps = home(".local/share/applications/");
    EXPECT_EQ(report.issues,
              (std::vector<std::string>{
                  apps + "binary.desktop: The file holds binary data, not a desktop entry.",
                  apps + "broken.desktop: Line 4 is neither a group, a key nor a comment.",
                  apps + "nogroup.desktop: There is no [Desktop Entry] group.",
                  apps + "noname.desktop: The entry has no Name.",
              }));
    ASSERT_NE(findApp(report, "broken"), nullptr);
    EXPECT_EQ(findApp(report, "broken")->name, "Good");
    ASSERT_NE(findApp(report, "caf\xe9"), nullptr);
    EXPECT_EQ(findApp(report, "caf\xe9")->name, "Caf\xe9");
    EXPECT_EQ(report.apps.size(), 2u);
}

TEST_F(Inventory, UnreadableFoldersAreNotedAndTheRestIsRead)
{
    WithoutAdminRights plainUser;
    program("sys/bin/good");
    systemEntry("good.desktop", "Name=Good\nExec=good\n");
    tree.file("home/.cache/good/x", 10);
    tree.file("home/.config/good/x", 10);
    tree.file("home/.local/share/applications/locked/x.desktop", 10);
    tree.chmod("home/.local/share/applications/locked", 0);
    tree.chmod("home/.config", 0);
    tree.file("home/.cache/good/locked/y", 10);
    tree.chmod("home/.cache/good/locked", 0);

    const ApplicationReport report = inspect();
    EXPECT_EQ(report.issues, (std::vector<std::string>{"locked: Permission denied", "Config: Permission denied"}));
    const InstalledApplication* good = findApp(report, "good");
    ASSERT_NE(good, nullptr);
    ASSERT_EQ(good->support.size(), 1u);
    EXPECT_EQ(good->support[0].node.path, home(".cache/good"));
    EXPECT_EQ(good->support[0].scan.skippedCount(), 1); // the scan notes what it could not read
}

TEST_F(Inventory, OwnershipIsInjectedAndProgressNamesEachApp)
{
    program("sys/bin/alpha");
    program("sys/bin/beta");
    systemEntry("alpha.desktop", "Name=Alpha\nExec=alpha\n");
    systemEntry("beta.desktop", "Name=Beta\nExec=beta\n");
    tree.file("home/.cache/net.extra.Alpha/x", 10);
    tree.file("home/.cache/alpha/x", 10);
    std::vector<std::string> asked;
    const ApplicationInventory inventory([&](const DesktopApplication& app) {
        asked.push_back(app.desktopId);
        ApplicationOwnership ownership;
        if (app.desktopId == "alpha")
            ownership.identifiers = {"net.extra.Alpha"};
        return ownership;
    });
    std::vector<std::pair<std::string, int>> steps;
    const ApplicationReport report =
        inventory.inspect(places(), flag, [&](const std::string& name, int done) { steps.emplace_back(name, done); });
    EXPECT_EQ(asked, (std::vector<std::string>{"alpha", "beta"}));
    EXPECT_EQ(steps, (std::vector<std::pair<std::string, int>>{{"Alpha", 0}, {"Beta", 1}}));
    EXPECT_EQ(labels(*findApp(report, "alpha")),
              (std::map<std::string, std::string>{{home(".cache/net.extra.Alpha"), "Cache | Bundle identifier"}}));
}

TEST_F(Inventory, CancellationEndsTheRunWithoutAReport)
{
    program("sys/bin/alpha");
    systemEntry("alpha.desktop", "Name=Alpha\nExec=alpha\n");
    flag.cancel();
    EXPECT_THROW(inspect(), CancellationError);

    // Cancelled while the first application is announced: nothing more is measured.
    CancellationFlag later;
    int calls = 0;
    EXPECT_THROW(ApplicationInventory().inspect(places(), later,
                                                [&](const std::string&, int) {
                                                    ++calls;
                                                    later.cancel();
                                                }),
                 CancellationError);
    EXPECT_EQ(calls, 1);
}

TEST(ApplicationInventoryItems, AnItemIsMeasuredAsWhatItIs)
{
    TempTree tree;
    tree.file("folder/a", 5000);
    tree.hardLink("folder/a", "folder/b");
    tree.file("file", 1234);
    tree.symlink("folder", "link");
    CancellationFlag flag;
    const ScanResult folder = ApplicationInventory::scanItem(tree.path("folder"), flag);
    EXPECT_EQ(folder.root()->fileCount, 2);
    EXPECT_EQ(folder.root()->logicalSize, 10000);
    EXPECT_EQ(folder.root()->allocatedSize, uniqueAllocated(tree.path("folder")));
    const ScanResult file = ApplicationInventory::scanItem(tree.path("file"), flag);
    EXPECT_EQ(file.nodeCount(), 1u);
    EXPECT_EQ(file.rootPath(), tree.path("file"));
    EXPECT_EQ(file.root()->logicalSize, 1234);
    EXPECT_EQ(file.root()->fileCount, 1);
    EXPECT_FALSE(file.root()->parent.has_value());
    const ScanResult link = ApplicationInventory::scanItem(tree.path("link"), flag);
    EXPECT_TRUE(link.root()->isSymbolicLink); // the link itself, not the folder it names
    EXPECT_FALSE(link.root()->isDirectory);
    EXPECT_THROW(ApplicationInventory::scanItem(tree.path("vanished"), flag), std::system_error);
}

TEST(ApplicationInventoryItems, SystemAppsAreThoseOfTheSystemsOwnFolders)
{
    const struct {
        const char* path;
        bool system;
    } cases[] = {
        {"/usr/bin/gedit", true},         {"/usr/lib/firefox/firefox", true}, {"/bin/true", true},
        {"/sbin/tool", true},             {"/opt/google/chrome/chrome", true}, {"/usr", true},
        {"/var/lib/flatpak/app/x", false}, {"/snap/tool", false},             {"/home/u/Apps/x", false},
        {"/usrlocal/x", false},           {"/optional/x", false},
    };
    for (const auto& c : cases) {
        InstalledApplication app;
        app.path = c.path;
        EXPECT_EQ(app.isSystem(), c.system) << c.path;
    }
}

TEST(ApplicationInventoryPlaces, FoldersComeFromTheEnvironmentWithTheirDefaults)
{
    FakeHome fake;
    const char* saved = std::getenv("XDG_DATA_DIRS");
    const std::optional<std::string> before = saved ? std::optional<std::string>(saved) : std::nullopt;
    ::setenv("XDG_DATA_DIRS", "/opt/share:relative/share::/usr/share", 1);
    ::unsetenv("XDG_CONFIG_HOME");
    InventoryPlaces p = InventoryPlaces::fromEnvironment({"/F", "/S", "/M"});
    EXPECT_EQ(p.home, fake.home());
    EXPECT_EQ(p.dataHome, fake.dataHome());
    EXPECT_EQ(p.configHome, fake.home() + "/.config");
    EXPECT_EQ(p.dataDirs, (std::vector<std::string>{"/opt/share", "/usr/share"}));
    EXPECT_EQ(p.applicationFolders(),
              (std::vector<std::string>{fake.dataHome() + "/applications",
                                        fake.dataHome() + "/flatpak/exports/share/applications",
                                        "/F/exports/share/applications", "/S/desktop/applications",
                                        "/opt/share/applications", "/usr/share/applications"}));
    ::unsetenv("XDG_DATA_DIRS");
    EXPECT_EQ(InventoryPlaces::fromEnvironment().dataDirs,
              (std::vector<std::string>{"/usr/local/share", "/usr/share"}));
    if (before)
        ::setenv("XDG_DATA_DIRS", before->c_str(), 1);
}
