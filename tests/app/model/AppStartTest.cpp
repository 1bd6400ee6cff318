#include <gtest/gtest.h>

#include <fstream>

#include "AppFixture.h"
#include "app/model/AppStart.h"
#include "app/model/CleanupFlow.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/model/SnapshotFlow.h"
#include "model/Identifiers.h"
#include "state/StateFiles.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using tarnbridge::test::FakeHome;

TEST(AppStart, FormerSettingsFillOnlyWhatIsAbsentAndTheStateFolderFollowsTheRedirect)
{
    FakeHome fake;
    fake.tree().fileWithText("home/.config/Oarstitch/Oarstitch.conf",
                             "[General]\ndarkAppearance=true\nbackupBeforeCleanup=false\ncolorTheme=Sage\n"
                             "snapshotsEnabled=true\n");
    fake.tree().fileWithText("home/.config/Tarnbridge/Tarnbridge.conf", "[General]\nsnapshotsEnabled=false\n");
    const auto settings = AppStart::openSettings();
    AppServices quiet;
    quiet.makeSampler = [] { return std::function<MonitorSample()>([] { return MonitorSample{}; }); };
    const auto model = AppStart::makeModel(*settings, quiet);
    const Preferences& preferences = model->preferences();
    EXPECT_TRUE(preferences.dark());
    EXPECT_FALSE(preferences.backupBeforeCleanup());
    EXPECT_EQ(preferences.theme(), AppTheme::sage);
    EXPECT_FALSE(preferences.snapshotsEnabled()); // set already: presence counts, not truth
    EXPECT_EQ(model->stateDirectory(), fake.tree().root() + "/state");
    EXPECT_EQ(model->store().directory(), fake.tree().root() + "/state/Snapshots");
}

TEST(AppStart, DamagedFilesAreNamedInOrderAndTheRestStillLoads)
{
    tarnbridge::test::AppFixture f({}, false);
    const std::string state = f.stateDirectory;
    AppState saved;
    saved.backups.push_back({newIdentifier(), "/b/Tarnbridge Backup", 1.7e9, {}});
    StateFiles(state).save(saved);
    f.tree().fileWithText("state/Snapshots", "a file where the folder should be");
    f.tree().fileWithText("state/cleanup.json", "[{\"node\":");
    f.tree().fileWithText("state/receipts.json", "{}");
    f.makeModel();
    const QString error = f.app().notices().error().value_or(QString());
    const QStringList lines = error.split(u'\n');
    ASSERT_EQ(lines.size(), 3) << error.toStdString();
    EXPECT_EQ(lines[0], QStringLiteral("Saved scans: Not a directory"));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("Cleanup queue: "))) << error.toStdString();
    EXPECT_TRUE(lines[2].startsWith(QStringLiteral("Trash history: "))) << error.toStdString();
    EXPECT_EQ(f.app().cleanup().backups(), saved.backups);
    EXPECT_TRUE(f.app().cleanup().queue().empty());
    EXPECT_TRUE(f.app().snapshots().snapshots().empty());
    // The damaged files stay on disk until the next save writes over them.
    std::ifstream receipts(state + "/receipts.json");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(receipts), {}), "{}");
}
