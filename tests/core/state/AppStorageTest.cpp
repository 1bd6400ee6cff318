#include <gtest/gtest.h>

#include <QSettings>

#include <filesystem>
#include <fstream>

#include "model/Errors.h"
#include "model/Identifiers.h"
#include "state/StateFiles.h"
#include "state/AppStorage.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::FakeHome;
using tarnbridge::test::TempTree;

TEST(AppStorage, ResolvePrefersTheCurrentFolderThenALegacyFolder)
{
    TempTree tree;
    const std::string data = tree.folder("data");
    EXPECT_EQ(AppStorage::resolve(data), data + "/Tarnbridge");
    tree.fileWithText("data/Oarstitch", "a file, not a folder");
    EXPECT_EQ(AppStorage::resolve(data), data + "/Tarnbridge");
    tree.remove("data/Oarstitch");
    tree.folder("data/Oarstitch");
    EXPECT_EQ(AppStorage::resolve(data), data + "/Oarstitch");
    tree.folder("data/Tarnbridge");
    EXPECT_EQ(AppStorage::resolve(data), data + "/Tarnbridge");
}

TEST(AppStorage, DirectoryFollowsTheRedirectOnlyWhenAbsolute)
{
    FakeHome fake;
    ::setenv("TARNBRIDGE_STATE_DIR", "relative/state", 1);
    EXPECT_EQ(AppStorage::directory(), fake.dataHome() + "/Tarnbridge");
    ::setenv("TARNBRIDGE_STATE_DIR", "/somewhere/state", 1);
    EXPECT_EQ(AppStorage::directory(), "/somewhere/state");
}

TEST(AppStorage, MigrationNeverOverwritesAPresentValue)
{
    TempTree tree;
    QSettings into(QString::fromStdString(tree.path("new.conf")), QSettings::IniFormat);
    into.setValue("snapshotsEnabled", false);
    const QVariantMap legacy{{"snapshotsEnabled", true}, {"colorTheme", "Sage"}, {"unrelated", 1}};
    AppStorage::migratePreferences(into, legacy);
    EXPECT_EQ(into.value("snapshotsEnabled").toBool(), false); // presence counts, not truth
    EXPECT_EQ(into.value("colorTheme").toString(), "Sage");
    EXPECT_FALSE(into.contains("unrelated"));
}

TEST(StateFiles, SavedStateLoadsBackAndDamagedFilesLeaveTheirPartEmpty)
{
    TempTree tree;
    const StateFiles files(tree.path("state"));
    EXPECT_TRUE(files.load().messages.empty()); // nothing there yet is no failure

    AppState state;
    CleanupEntry entry;
    entry.node.path = "/home/u/old.iso";
    entry.identities[entry.node.path] = FileIdentity{.inode = 5};
    state.queue.push_back(entry);
    state.receipts.push_back({newIdentifier(), "/home/u/a", "/home/u/.local/share/Trash/files/a", 1.7e9, 10, {}});
    state.backups.push_back({newIdentifier(), "/b/Tarnbridge Backup", 1.7e9, {{"/home/u/a", "Files/0001/a", 10}}});
    files.save(state);

    const auto loaded = files.load();
    EXPECT_TRUE(loaded.messages.empty());
    ASSERT_EQ(loaded.state.queue.size(), 1u);
    EXPECT_EQ(loaded.state.queue[0].identities, entry.identities);
    EXPECT_EQ(loaded.state.receipts, state.receipts);
    EXPECT_EQ(loaded.state.backups, state.backups);

    std::ofstream(tree.path("state/receipts.json")) << "[{\"id\": 1}";
    std::ofstream(tree.path("state/backups.json")) << "{}";
    const auto damaged = files.load();
    ASSERT_EQ(damaged.messages.size(), 2u);
    EXPECT_EQ(damaged.messages[0].rfind("Trash history: ", 0), 0u) << damaged.messages[0];
    EXPECT_EQ(damaged.messages[1], "Backups: The file has the wrong type.");
    EXPECT_EQ(damaged.state.queue.size(), 1u); // the good file still loads
    EXPECT_TRUE(damaged.state.receipts.empty());

    // An entry without one of its keys is refused with the item's number.
    std::ofstream(tree.path("state/cleanup.json")) << "[" + encodeQueue(state.queue).substr(1, encodeQueue(state.queue).size() - 2) + ",{\"node\":1}]";
    const auto queue = files.load();
    ASSERT_FALSE(queue.messages.empty());
    EXPECT_EQ(queue.messages[0].rfind("Cleanup queue: Item 2: ", 0), 0u) << queue.messages[0];
}

TEST(StateFiles, SaveFailureSaysSoAndLeavesOldFiles)
{
    TempTree tree;
    tree.fileWithText("blocker", "x");
    const StateFiles files(tree.path("blocker/state"));
    try {
        files.save({});
        ADD_FAILURE();
    } catch (const TarnbridgeError& e) {
        EXPECT_EQ(std::string(e.what()), "Could not save cleanup state: Not a directory");
    }
}
