#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "app/model/AppFixture.h"
#include "app/model/ExportFlow.h"
#include "app/model/Notices.h"
#include "app/model/ScanSession.h"
#include "storage/ScanJson.h"

using namespace tarnbridge;
using namespace tarnbridge::test;

namespace {

std::string contents(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

struct Exported : ::testing::Test {
    AppFixture f;
    std::string root;

    void SetUp() override
    {
        f.tree().file("scan/a/big.bin", 50'000);
        f.tree().file("scan/b.txt", 1'000);
        f.tree().folder("out");
        root = f.tree().path("scan");
        f.app().session().startScan(root);
        ASSERT_TRUE(waitUntil([&] { return !f.app().scanning() && f.app().session().scan(); }));
    }
    bool finished() { return waitUntil([&] { return !f.app().exports().busy(); }); }
};

TEST_F(Exported, ScanReadsBackWithItsTotalsAndReplacesAnOldFile)
{
    const std::string destination = f.tree().fileWithText("out/old.json", "old");
    f.nextFile = destination;
    f.app().exports().exportScan();
    ASSERT_TRUE(f.lastFileRequest);
    EXPECT_TRUE(f.lastFileRequest->save);
    EXPECT_EQ(f.lastFileRequest->suggestedName, QStringLiteral("Tarnbridge-scan.json"));
    ASSERT_TRUE(finished());
    EXPECT_EQ(f.app().notices().notice(), QStringLiteral("Scan exported."));
    const ScanResult back = ScanJson::readFile(destination);
    const ScanResult& mine = *f.app().session().scan();
    EXPECT_EQ(back.root()->logicalSize, mine.root()->logicalSize);
    EXPECT_EQ(back.root()->fileCount, mine.root()->fileCount);
    EXPECT_TRUE(back.node(f.tree().path("scan/a/big.bin")));
}

TEST_F(Exported, CsvHasOneRowPerKnownPathInTheGivenOrder)
{
    const std::string destination = f.tree().path("out/files.csv");
    f.nextFile = destination;
    f.app().exports().exportCSV({f.tree().path("scan/b.txt"), "/not/in/scan", f.tree().path("scan/a/big.bin")});
    ASSERT_TRUE(finished());
    EXPECT_EQ(f.app().notices().notice(), QStringLiteral("CSV exported."));
    const std::string text = contents(destination);
    const auto first = text.find("b.txt");
    const auto second = text.find("big.bin");
    ASSERT_NE(first, std::string::npos);
    ASSERT_NE(second, std::string::npos);
    EXPECT_LT(first, second);
    EXPECT_EQ(text.find("/not/in/scan"), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3) << "header and two rows";
}

TEST_F(Exported, CancelledDialogWritesNothingAndAFailureIsAnErrorThatKeepsTheOldFile)
{
    f.app().notices().setNotice(std::nullopt);
    f.nextFile.reset();
    f.app().exports().exportScan();
    EXPECT_FALSE(f.app().exports().busy());
    EXPECT_FALSE(f.app().notices().notice());

    // A destination whose folder is gone fails with a sentence naming it; an existing folder
    // in the way of the rename is left as it was.
    for (const std::string& destination : {f.tree().path("gone/scan.json"), f.tree().folder("out/taken.json")}) {
        f.app().notices().setError(std::nullopt);
        f.app().notices().setNotice(std::nullopt);
        f.nextFile = destination;
        f.app().exports().exportScan();
        ASSERT_TRUE(finished());
        EXPECT_FALSE(f.app().notices().notice());
        ASSERT_TRUE(f.app().notices().error()) << destination;
        EXPECT_TRUE(f.app().notices().error()->contains(QString::fromStdString(destination)))
            << f.app().notices().error()->toStdString();
    }
    EXPECT_TRUE(std::filesystem::is_directory(f.tree().path("out/taken.json")));
    for (const auto& entry : std::filesystem::directory_iterator(f.tree().path("out")))
        EXPECT_EQ(entry.path().filename().string().rfind(".", 0), std::string::npos) << "temporary left behind";
}

TEST_F(Exported, NothingToExportDuringAScan)
{
    f.app().session().startScan(root);
    EXPECT_FALSE(f.app().exports().canExport());
    f.nextFile = f.tree().path("out/during.json");
    f.app().exports().exportScan();
    EXPECT_FALSE(f.lastFileRequest) << "no dialog while the scan runs";
    ASSERT_TRUE(waitUntil([&] { return !f.app().scanning(); }));
    EXPECT_TRUE(f.app().exports().canExport());
}

} // namespace
