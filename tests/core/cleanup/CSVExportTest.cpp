#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "cleanup/CSVExport.h"
#include "model/Errors.h"
#include "support/FakeScan.h"
#include "support/Checks.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::readText;
using tarnbridge::test::fakeScan;
using tarnbridge::test::runProcess;
using tarnbridge::test::TempTree;

TEST(CSVExport, CellsAreDefusedAndQuotedAndARealReaderAgrees)
{
    TempTree tree;
    const ScanResult scan = fakeScan("/r", {{"=SUM(A1).txt", 5, 4096, 1'769'851'800},
                                            {"a\"b.mp4", 7},
                                            {"\tTabbed.pdf", 1},
                                            {"+1 @x, y.png", 2},
                                            {"Photos.mp4/", 0},
                                            {"Photos.mp4/inner.txt", 3}});
    std::vector<std::string> paths{"/r/=SUM(A1).txt", "/r/a\"b.mp4", "/r/missing", "/r/\tTabbed.pdf",
                                   "/r/+1 @x, y.png", "/r/Photos.mp4"};
    const std::string out = tree.path("export.csv");
    CSVExport::write(paths, scan, out);
    const std::string text = readText(out);
    EXPECT_EQ(text.rfind(CSVExport::kHeader, 0), 0u);
    EXPECT_NE(text.find("\"/r/=SUM(A1).txt\",\"'=SUM(A1).txt\",5,4096,1,\"Documents\",\"2026-01-31T09:30:00Z\"\r\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find(",\"a\"\"b.mp4\","), std::string::npos);
    EXPECT_NE(text.find(",\"Folder\","), std::string::npos);

    // Python's csv module reads it back to the same cells, one row per known path.
    const auto python = runProcess({"python3", "-c",
                                    "import csv,sys\n"
                                    "rows=list(csv.reader(open(sys.argv[1],newline='',encoding='utf-8')))\n"
                                    "for r in rows: print('|'.join(c.replace('\\t','<TAB>') for c in r))",
                                    out});
    ASSERT_EQ(python.exitCode, 0) << python.err;
    const std::string expected = "path|name|bytes|allocated|files|kind|modified\n"
                                 "/r/=SUM(A1).txt|'=SUM(A1).txt|5|4096|1|Documents|2026-01-31T09:30:00Z\n"
                                 "/r/a\"b.mp4|a\"b.mp4|7|7|1|Video|2023-11-14T22:13:20Z\n"
                                 "/r/<TAB>Tabbed.pdf|'<TAB>Tabbed.pdf|1|1|1|Documents|2023-11-14T22:13:20Z\n"
                                 "/r/+1 @x, y.png|'+1 @x, y.png|2|2|1|Images|2023-11-14T22:13:20Z\n";
    EXPECT_EQ(python.out.substr(0, expected.size()), expected);
    EXPECT_NE(python.out.find("/r/Photos.mp4|Photos.mp4|3|3|1|Folder|"), std::string::npos) << python.out;
}

TEST(CSVExport, DestinationIsReplacedOnlyByACompleteFile)
{
    TempTree tree;
    const ScanResult scan = fakeScan("/r", {{"x", 1}});
    const std::string out = tree.fileWithText("old.csv", "old contents");
    CSVExport::write(std::vector<std::string>{}, scan, out);
    EXPECT_EQ(readText(out), CSVExport::kHeader);

    // Cancelled: the old file stays, and no temporary is left.
    tree.fileWithText("old.csv", "old contents");
    CancellationFlag stop;
    stop.cancel();
    EXPECT_THROW(CSVExport::write({"/r/x"}, scan, out, stop), CancellationError);
    EXPECT_EQ(readText(out), "old contents");

    // Many rows cross the buffer's flush point and all arrive.
    std::vector<test::FakeEntry> entries;
    std::vector<std::string> paths;
    for (int i = 0; i < 5000; ++i) {
        entries.push_back({"file-" + std::to_string(i) + ".bin", i});
        paths.push_back("/r/file-" + std::to_string(i) + ".bin");
    }
    CSVExport::write(paths, fakeScan("/r", entries), out);
    const std::string big = readText(out);
    EXPECT_GT(big.size(), 256u * 1024);
    EXPECT_EQ(std::count(big.begin(), big.end(), '\n'), 5001);

    const std::string readOnly = tree.folder("ro");
    tree.chmod("ro", 0555);
    {
        test::WithoutAdminRights plainUser;
        EXPECT_THROW(CSVExport::write(std::vector<std::string>{}, scan, readOnly + "/x.csv"), std::system_error);
    }
    EXPECT_TRUE(std::filesystem::is_empty(readOnly));
    std::vector<std::string> left;
    for (const auto& e : std::filesystem::directory_iterator(tree.root()))
        left.push_back(e.path().filename().string());
    EXPECT_EQ(left.size(), 2u); // old.csv and ro: no temporary files
}
