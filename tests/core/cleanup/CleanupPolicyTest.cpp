#include <gtest/gtest.h>

#include <unistd.h>

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
