#include <gtest/gtest.h>

#include "app/model/ExploreState.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "AppFixture.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using tarnbridge::test::AppFixture;
using tarnbridge::test::waitUntil;

TEST(ScanSession, ARealScanRunsFromStartToAnInstalledResult)
{
    AppFixture f;
    const std::string root = f.tree().folder("home/work");
    f.tree().file("home/work/a.bin", 5000);
    f.tree().file("home/work/sub/b.bin", 300);
    ScanSession& session = f.app().session();
    session.startScan(root);
    EXPECT_TRUE(session.scanning());
    EXPECT_EQ(session.scanRootName(), QStringLiteral("work"));
    ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));
    ASSERT_TRUE(session.scan());
    EXPECT_EQ(session.scan()->rootPath(), root);
    EXPECT_EQ(session.focus()->path, root);
    EXPECT_FALSE(f.app().notices().error());
    EXPECT_TRUE(f.app().notices().notice()->startsWith(QStringLiteral("Scan complete — ")));
    EXPECT_EQ(f.app().preferences().recent(), QStringList{QString::fromStdString(root)});
    EXPECT_EQ(f.app().explore().currentChildren().size(), 2u);
}
