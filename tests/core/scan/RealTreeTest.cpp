#include <gtest/gtest.h>

#include <string>

#include "scan/DiskScanner.h"
#include "support/TempTree.h"

using namespace tarnbridge;

namespace {

std::int64_t shellNumber(const std::string& command)
{
    const auto result = test::runProcess({"bash", "-c", "set -o pipefail; " + command});
    EXPECT_EQ(result.exitCode, 0) << command << "\n" << result.err;
    return std::stoll(result.out.empty() ? "0" : result.out);
}

} // namespace

// The totals of a real system tree, checked against du and find, which count the same things
// in their own ways. Folders' own blocks are left out of our sizes on purpose, so they are
// taken off du's total.
TEST(RealTree, UsrMatchesDuAndFind)
{
    const std::string root = "/usr";
    CancellationFlag flag;
    const ScanResult scan = DiskScanner::scan(root, flag);
    const DiskNode total = *scan.root();
    ASSERT_TRUE(scan.issues().empty()) << scan.issues().front().path << ": " << scan.issues().front().message;

    const std::int64_t du = shellNumber("du -sxB1 " + root + " | cut -f1");
    const std::int64_t folderBlocks =
        shellNumber("find " + root + " -xdev -type d -printf '%b\\n' | awk '{s+=$1} END {printf \"%.0f\", s*512}'");
    EXPECT_EQ(total.allocatedSize, du - folderBlocks);

    EXPECT_EQ(total.logicalSize,
              shellNumber("find " + root + " -xdev ! -type d -printf '%s\\n' | awk '{s+=$1} END {printf \"%.0f\", s}'"));
    EXPECT_EQ(total.fileCount, shellNumber("find " + root + " -xdev ! -type d | wc -l"));
    EXPECT_EQ(total.folderCount, shellNumber("find " + root + " -xdev -type d | wc -l") - 1);
}
