#include <gtest/gtest.h>

#include "query/FileCategory.h"
#include "visual/Paper.h"

using namespace tarnbridge;

namespace {

std::size_t indexOf(const Paper::Adaptive& color)
{
    const auto& palette = Paper::colors();
    for (std::size_t i = 0; i < palette.size(); ++i)
        if (palette[i].light == color.light && palette[i].dark == color.dark)
            return i;
    return 99;
}

} // namespace

TEST(Paper, FolderColoursComeFromTheFixedTableOrTheNameHash)
{
    const double now = 1.8e9;
    EXPECT_EQ(Paper::colors()[3].light, QColor(0xD2, 0xE1, 0xEC));
    EXPECT_EQ(Paper::colors()[3].dark, QColor(0x41, 0x5D, 0x69));
    EXPECT_EQ(indexOf(Paper::color("/home/u/Movies", 0, ColorMode::folder, "/home/u", now)), 3u);
    EXPECT_EQ(indexOf(Paper::color("/home/u/.npm", 0, ColorMode::folder, "/home/u", now)), 6u);
    // djb2 by hand: 5381 * 33 + 'a' = 177670; "ab" = 177670 * 33 + 'b' = 5863208.
    EXPECT_EQ(Paper::djb2("a"), 177670u);
    EXPECT_EQ(Paper::djb2("ab"), 5863208u);
    EXPECT_EQ(indexOf(Paper::color("/home/u/ab", 0, ColorMode::folder, "/home/u", now)), 5863208u % 9);
    // Outside the root the item's own name decides.
    EXPECT_EQ(indexOf(Paper::color("/elsewhere/Music", 0, ColorMode::folder, "/home/u", now)), 7u);
}

TEST(Paper, DeeperItemsAreShadesOfTheirTopFolder)
{
    const auto shade = Paper::color("/home/u/Movies/2019/clip.mov", 0, ColorMode::folder, "/home/u", 0);
    EXPECT_EQ(indexOf(shade), 99u);
    // Base colour of "Movies" is 9FBFD4; a shade moves every channel by one delta in -0.12..0.12.
    const int base[] = {0x9F, 0xBF, 0xD4};
    const int got[] = {shade.light.red(), shade.light.green(), shade.light.blue()};
    const double delta = (got[0] - base[0]) / 255.0;
    EXPECT_LE(std::abs(delta), 0.125);
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(got[c], base[c] + delta * 255, 1.01) << c;
    // Dark channels follow v * 100 + 22.
    EXPECT_NEAR(shade.dark.red(), (base[0] / 255.0 + delta) * 100 + 22, 1.01);
    // Stable: the same place gives the same shade.
    EXPECT_EQ(Paper::color("/home/u/Movies/2019/clip.mov", 0, ColorMode::folder, "/home/u", 0).light, shade.light);
}

TEST(Paper, AgeAndTypeColours)
{
    const double now = 1.8e9;
    const auto ageIndex = [&](double days) {
        return indexOf(Paper::color("/f", std::int64_t(now - days * 86400), ColorMode::age, "/", now));
    };
    EXPECT_EQ(ageIndex(29), 6u);
    EXPECT_EQ(ageIndex(30), 2u);
    EXPECT_EQ(ageIndex(179), 2u);
    EXPECT_EQ(ageIndex(180), 0u);
    EXPECT_EQ(ageIndex(364), 0u);
    EXPECT_EQ(ageIndex(365), 1u);
    const auto& all = FileCategory::allCases();
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (all[i] == FileCategory::other)
            continue;
        // Any name of that category: find one among a few extensions.
        for (const char* ext : {"mp4", "mp3", "png", "pdf", "cpp", "zip"})
            if (FileCategory::classify(std::string("x.") + ext) == all[i]) {
                EXPECT_EQ(indexOf(Paper::color(std::string("/d/x.") + ext, 0, ColorMode::type, "/d", now)), i) << ext;
            }
    }
}

TEST(Paper, RawValuesOfModesAndViews)
{
    EXPECT_EQ(rawValue(ColorMode::age), "By age");
    EXPECT_EQ(colorModeFromRaw("By type"), ColorMode::type);
    EXPECT_EQ(rawValue(StorageView::mindMap), "Mind Map");
    EXPECT_EQ(storageViewFromRaw("Top Sizes"), StorageView::topSizes);
    EXPECT_FALSE(storageViewFromRaw("Pie"));
    EXPECT_TRUE(isGraph(StorageView::flame));
    EXPECT_FALSE(isGraph(StorageView::folders));
    EXPECT_TRUE(supportsColor(StorageView::folders));
    EXPECT_FALSE(supportsColor(StorageView::table));
}
