#include <gtest/gtest.h>

#include <QLocale>

#include "model/Errors.h"
#include "model/Formatting.h"
#include "model/PathText.h"
#include "model/ScanPaths.h"
#include "model/ScanResult.h"

using namespace tarnbridge;

TEST(PathText, NameAndExtension)
{
    EXPECT_EQ(PathText::name("/a/b///"), "b");
    EXPECT_EQ(PathText::name("///"), "/");
    EXPECT_EQ(PathText::name(""), "/");
    EXPECT_EQ(PathText::name("plain"), "plain");
    EXPECT_EQ(PathText::pathExtension("/a/.hidden"), "");
    EXPECT_EQ(PathText::pathExtension("/a/b.tar.gz"), "gz");
    EXPECT_EQ(PathText::pathExtension("/a/notes."), "");
    EXPECT_EQ(PathText::pathExtension("/a/Photo.JPG"), "JPG");
    EXPECT_EQ(PathText::pathExtension("/a.b/c"), "");
}

TEST(PathText, ContainsMatchesWholeComponents)
{
    EXPECT_TRUE(ScanResult::contains("/", "/"));
    EXPECT_TRUE(ScanResult::contains("/a", "/"));
    EXPECT_FALSE(ScanResult::contains("/ab", "/a"));
    EXPECT_TRUE(ScanResult::contains("/a/b", "/a"));
    EXPECT_FALSE(ScanResult::contains("/Users/anna", "/Users/ann"));
    EXPECT_FALSE(ScanResult::contains("relative", "/"));
    // A root with a trailing slash is taken as it stands.
    EXPECT_FALSE(ScanResult::contains("/a/b", "/a/"));
}

TEST(PathText, OrderIsScalarOrderAfterNormalisation)
{
    EXPECT_LT(PathText::compare("/a/B", "/a/a"), 0); // plain code points: upper case first
    EXPECT_LT(PathText::compare("/a/a", "/a/b"), 0);
    EXPECT_EQ(PathText::compare("/x", "/x"), 0);
    // "é" composed and decomposed are the same text, and sort after "f" either way.
    const std::string composed = "/caf\xC3\xA9";
    const std::string decomposed = "/cafe\xCC\x81";
    EXPECT_EQ(PathText::compare(composed, decomposed), 0);
    EXPECT_GT(PathText::compare(decomposed, "/caff"), 0);
    EXPECT_GT(PathText::compare(composed, "/caff"), 0);
    // Bytes that are not UTF-8 still give one fixed order.
    EXPECT_LT(PathText::compare("/a\x80", "/a\xFF"), 0);
    EXPECT_GT(PathText::compare("/a\xFF", "/a\x80"), 0);
}

TEST(Formatting, Shares)
{
    EXPECT_EQ(formattedShare(0, 0), "—");
    EXPECT_EQ(formattedShare(0, 5), "0%");
    EXPECT_EQ(formattedShare(1, 100000), "<0.1%");
    EXPECT_EQ(formattedShare(1, 3), "33.3%");
    EXPECT_EQ(formattedShare(5, 5), "100.0%");
    EXPECT_EQ(formattedShare(-3, 5), "0%");
}

TEST(Formatting, BytesUseDecimalUnits)
{
    QLocale::setDefault(QLocale::c());
    EXPECT_EQ(formattedBytes(0), "0 bytes");
    EXPECT_EQ(formattedBytes(1), "1 byte");
    EXPECT_EQ(formattedBytes(999), "999 bytes");
    EXPECT_EQ(formattedBytes(1000), "1 kB");
    EXPECT_EQ(formattedBytes(1499), "1 kB");
    EXPECT_EQ(formattedBytes(3400000), "3.4 MB");
    EXPECT_EQ(formattedBytes(1250000000), "1.25 GB");
    EXPECT_EQ(formattedBytes(2000000000000), "2 TB");
    // Rounding that would show "1000 kB" moves to the next unit.
    EXPECT_EQ(formattedBytes(999999), "1 MB");
    EXPECT_EQ(parseByteCount("10MB"), 10000000);
    EXPECT_EQ(parseByteCount("1.5 gb"), 1500000000);
    EXPECT_EQ(parseByteCount("2000"), 2000);
    EXPECT_THROW(parseByteCount("ten"), TarnbridgeError);
    EXPECT_THROW(parseByteCount("5 parsecs"), TarnbridgeError);
}

namespace {
std::vector<std::string> mac(const std::string& path)
{
    return ScanPaths::candidates(path, ScanPaths::macOSProfile());
}
} // namespace

TEST(ScanPaths, EverySpellingOnTheDataVolumeSystem)
{
    using V = std::vector<std::string>;
    EXPECT_EQ(mac("relative/path"), V{});
    EXPECT_EQ(mac(std::string("/a\0b", 4)), V{});
    EXPECT_EQ(mac("/"), (V{"/", "/System/Volumes/Data"}));
    EXPECT_EQ(mac("/Users/ann/../bob/./x"), (V{"/Users/bob/x", "/System/Volumes/Data/Users/bob/x"}));
    EXPECT_EQ(mac("/System/Volumes/Data/Users"), (V{"/System/Volumes/Data/Users", "/Users"}));
    EXPECT_EQ(mac("/System/Volumes/Data"), (V{"/System/Volumes/Data", "/"}));
    EXPECT_EQ(mac("/tmp/x"), (V{"/tmp/x", "/System/Volumes/Data/tmp/x", "/private/tmp/x",
                                "/System/Volumes/Data/private/tmp/x"}));
    EXPECT_EQ(mac("/private/var/a"), (V{"/private/var/a", "/System/Volumes/Data/private/var/a",
                                        "/var/a", "/System/Volumes/Data/var/a"}));
    EXPECT_EQ(mac("/variant"), (V{"/variant", "/System/Volumes/Data/variant"}));
    EXPECT_EQ(mac("/../a").front(), "/a");
}

TEST(ScanPaths, MergedUsrAliases)
{
    const ScanPathsProfile merged{"", {"/bin", "/lib"}, "/usr"};
    using V = std::vector<std::string>;
    EXPECT_EQ(ScanPaths::candidates("/bin/ls", merged), (V{"/bin/ls", "/usr/bin/ls"}));
    EXPECT_EQ(ScanPaths::candidates("/usr/lib/x/", merged), (V{"/usr/lib/x", "/lib/x"}));
    EXPECT_EQ(ScanPaths::candidates("/binary", merged), (V{"/binary"}));
    EXPECT_EQ(ScanPaths::candidates("/", merged), (V{"/"}));
}
