#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "cleanup/CleanupPolicy.h"
#include "platform/UserFolders.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::FakeHome;
using tarnbridge::test::runProcess;

TEST(CleanupPolicy, EachRefusalInTheOrderOfItsChecks)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const CleanupPolicy policy{platform::currentHome()};
    ASSERT_EQ(policy.home, fake.home());
    const std::string home = fake.home();
    tree.file("home/Documents/report.pdf", 10);
    tree.file("home/.ssh/id_ed25519", 10);
    tree.symlink(home + "/Documents", "home/shortcut");
    tree.file("home/Thing.APP/Contents/x", 1);
    tree.fileWithText("home/Mac.app/Contents/Info.plist",
                      "<plist><dict><key>CFBundleIdentifier</key><string>com.apple.Safari</string></dict></plist>");
    tree.fileWithText("home/Other.app/Contents/Info.plist",
                      "<plist><dict><key>CFBundleIdentifier</key><string>org.example.Other</string></dict></plist>");
    tree.file("home/.local/share/flatpak/app/org.example.App/current/files/bin/app", 1);
    tree.file("home/.cache/big.bin", 1);

    struct Case {
        std::string path;
        const char* expected; // nullptr: allowed
    };
    const std::vector<Case> cases{
        {home + "/Documents/report.pdf", nullptr},
        {home + "/Documents/../Documents/./report.pdf", nullptr},
        {home + "/shortcut", kRefusedLink},
        {home + "/shortcut/report.pdf", kRefusedLink},
        {home + "/Thing.APP/Contents", kRefusedAppContents},
        {home + "/Thing.APP", nullptr}, // no bundle: passes the app test
        {home + "/Mac.app", kRefusedSystemApp},
        {home + "/Mac.app/Contents", kRefusedAppContents},
        {home + "/Other.app", nullptr},
        {home + "/.local/share/flatpak/app/org.example.App/current", kRefusedAppContents},
        {home + "/.local/share/flatpak/app/org.example.App", nullptr}, // what uninstalling moves
        {home + "/.ssh/id_ed25519", kRefusedProtected},
        {home + "/.ssh", kRefusedProtected},
        {home, kRefusedProtected},                  // it holds protected folders
        {home + "/.local/share", kRefusedProtected}, // holds the Trash and the keyrings
        {home + "/.cache", nullptr},
        {home + "/.cache/big.bin", nullptr},
        {"/", kRefusedProtected},
        {"/etc/hostname", kRefusedProtected},
        {"/usr", kRefusedProtected},
        {"/mnt", kRefusedRootFolder},
        {"/opt", kRefusedRootFolder},
        {"/media/nothing/here", nullptr}, // missing: the file system has nothing to object
    };
    for (const auto& c : cases) {
        const auto refusal = policy.rejection(c.path);
        if (c.expected)
            EXPECT_EQ(refusal, std::optional<std::string>(c.expected)) << c.path;
        else
            EXPECT_FALSE(refusal.has_value()) << c.path << ": " << *refusal;
    }
    // The running program itself.
    char self[4096] = {};
    ASSERT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
    EXPECT_EQ(policy.rejection(self), std::optional<std::string>(kRefusedSelf));
}

TEST(CleanupPolicy, CanonicallyEquivalentSpellingsAreOnePath)
{
    // A home whose name is written decomposed on disk is still protected when asked for in its
    // composed form, and the other way round.
    const CleanupPolicy policy{"/home/cafe\xCC\x81"};
    EXPECT_EQ(policy.rejection("/home/caf\xC3\xA9/.ssh/key"), std::optional<std::string>(kRefusedProtected));
    EXPECT_EQ(policy.rejection("/home/caf\xC3\xA9/.ssh"), std::optional<std::string>(kRefusedProtected));
    EXPECT_FALSE(policy.rejection("/home/caf\xC3\xA9/notes.txt").has_value());
}

TEST(CleanupPolicy, ImmutableFilesAreProtectedBySystem)
{
    test::TempTree tree;
    const std::string file = tree.file("pinned", 5);
    EXPECT_FALSE(CleanupPolicy::fileProtection(file).has_value());
    EXPECT_FALSE(CleanupPolicy::fileProtection(tree.path("missing")).has_value());
    if (runProcess({"chattr", "+i", file}).exitCode != 0)
        GTEST_SKIP() << "this file system or account cannot set the immutable attribute";
    EXPECT_EQ(CleanupPolicy::fileProtection(file), std::optional<std::string>(kRefusedSystemFlag));
    EXPECT_EQ(CleanupPolicy{"/nonexistent-home"}.rejection(file), std::optional<std::string>(kRefusedSystemFlag));
    runProcess({"chattr", "-i", file});
}

namespace {

// A place that is a symbolic link on this machine (/bin on a merged /usr) meets the link
// refusal first; what does not exist is judged by its name alone.
bool isLinkHere(const std::string& path)
{
    char* resolved = ::realpath(path.c_str(), nullptr);
    const bool link = resolved && path != resolved;
    std::free(resolved);
    return link;
}

} // namespace

// Every entry of both lists, with what lies inside it; a dropped or misspelt entry lets its
// folder through.
TEST(CleanupPolicy, EveryListedPlaceIsRefusedWithItsOwnWords)
{
    FakeHome fake;
    const CleanupPolicy policy{platform::currentHome()};
    const std::string home = fake.home();
    std::vector<std::string> protectedPlaces{"/System", "/bin", "/sbin", "/usr", "/private", "/dev", "/Library"};
    for (const char* below : {"/.Trash", "/.ssh", "/.gnupg", "/Library/Keychains", "/Library/Mail", "/Library/Messages",
                              "/Library/Accounts", "/Library/CloudStorage", "/Library/Mobile Documents",
                              "/Library/Application Support/Tarnbridge"})
        protectedPlaces.push_back(home + below);
    for (const char* top : {"/etc", "/boot", "/efi", "/proc", "/sys", "/run", "/lib", "/lib32", "/lib64", "/libx32",
                            "/var/lib", "/var/spool", "/snap"})
        protectedPlaces.emplace_back(top);
    for (const char* below : {"/.local/share/Trash", "/.local/share/keyrings", "/.pki", "/.password-store",
                              "/.mozilla", "/.thunderbird", "/.local/share/evolution", "/.local/share/Tarnbridge",
                              "/.config/Tarnbridge"})
        protectedPlaces.push_back(home + below);

    for (const std::string& place : protectedPlaces) {
        EXPECT_EQ(policy.rejection(place), std::optional<std::string>(isLinkHere(place) ? kRefusedLink : kRefusedProtected))
            << place;
        EXPECT_EQ(policy.rejection(place + "/inside"), std::optional<std::string>(kRefusedProtected)) << place;
    }

    // Root folders refuse themselves only; one that holds a protected place speaks with the
    // protected words, since that check comes first.
    struct Root {
        std::string path;
        const char* expected;
    };
    const std::vector<Root> roots{
        {"/", kRefusedProtected},
        {"/Users", kRefusedRootFolder},
        {"/Applications", kRefusedRootFolder},
        {"/Volumes", kRefusedRootFolder},
        {home, kRefusedProtected},
        {home + "/Library", kRefusedProtected},
        {home + "/Library/Application Support", kRefusedProtected},
        {home + "/Library/Containers", kRefusedRootFolder},
        {home + "/Library/Preferences", kRefusedRootFolder},
        {"/home", kRefusedRootFolder},
        {"/media", kRefusedRootFolder},
        {"/mnt", kRefusedRootFolder},
        {"/srv", kRefusedRootFolder},
        {"/opt", kRefusedRootFolder},
        {"/var", kRefusedProtected},
        {home + "/.config", kRefusedProtected},
        {home + "/.local", kRefusedProtected},
        {home + "/.local/share", kRefusedProtected},
    };
    for (const Root& root : roots) {
        EXPECT_EQ(policy.rejection(root.path), std::optional<std::string>(root.expected)) << root.path;
        const std::string inside = root.path == "/" ? "/inside" : root.path + "/inside";
        EXPECT_EQ(policy.rejection(inside), std::nullopt) << inside;
    }
}
