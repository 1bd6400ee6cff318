#include <gtest/gtest.h>

#include <QImage>
#include <QSvgRenderer>

#include <set>

#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::cliPath;
using tarnbridge::test::runProcess;
using tarnbridge::test::TempTree;

TEST(RenderCommand, EveryViewWritesAPictureAndAValidSvg)
{
    TempTree tree;
    for (int i = 0; i < 60; ++i)
        tree.file("data/folder" + std::to_string(i % 6) + "/sub" + std::to_string(i % 3) + "/file" + std::to_string(i) +
                      (i % 2 ? ".png" : ".txt"),
                  (i + 1) * 5000);
    const std::string out = tree.folder("out");
    for (const char* view : {"treemap", "sunburst", "flame", "bubbles", "mindmap"}) {
        SCOPED_TRACE(view);
        const std::string png = out + "/" + view + ".png";
        const std::string svg = out + "/" + view + ".svg";
        const auto a = runProcess({cliPath(), "render", tree.path("data"), "--view", view, "--size", "640x400",
                                   "--out", png, "--quiet"});
        ASSERT_EQ(a.exitCode, 0) << a.err;
        const auto b = runProcess({cliPath(), "render", tree.path("data"), "--view", view, "--dark", "--color",
                                   "type", "--out", svg, "--quiet"});
        ASSERT_EQ(b.exitCode, 0) << b.err;
        EXPECT_EQ(a.err, "");

        const QImage image(QString::fromStdString(png));
        ASSERT_FALSE(image.isNull());
        EXPECT_EQ(image.size(), QSize(640, 400));
        std::set<QRgb> colours;
        for (int y = 0; y < image.height(); y += 7)
            for (int x = 0; x < image.width(); x += 7)
                colours.insert(image.pixel(x, y));
        EXPECT_GT(colours.size(), 5u); // a chart, not a blank page

        QSvgRenderer renderer(QString::fromStdString(svg));
        EXPECT_TRUE(renderer.isValid());
        EXPECT_EQ(renderer.viewBox(), QRect(0, 0, 1600, 1000));
    }
    const auto wrong = runProcess({cliPath(), "render", tree.path("data"), "--view", "pie", "--out", out + "/x.png"});
    EXPECT_EQ(wrong.exitCode, 2);
    const auto noOut = runProcess({cliPath(), "render", tree.path("data")});
    EXPECT_EQ(noOut.exitCode, 2);
    const auto badName = runProcess({cliPath(), "render", tree.path("data"), "--out", out + "/x.gif"});
    EXPECT_EQ(badName.exitCode, 2);
}
