#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "monitor/VolumeInfo.h"
#include "support/TempTree.h"

using namespace tarnbridge;

TEST(VolumeInfo, UsedAndFractionStayInRange)
{
    VolumeInfo volume;
    EXPECT_EQ(volume.used(), 0);
    EXPECT_EQ(volume.fraction(), 0);
    volume.free = 500; // figures of a volume that reports no size
    EXPECT_EQ(volume.used(), 0);
    EXPECT_EQ(volume.fraction(), 0);
    volume.total = 400; // more free than total
    EXPECT_EQ(volume.used(), 0);
    EXPECT_EQ(volume.fraction(), 0);
    volume.free = 100;
    EXPECT_EQ(volume.used(), 300);
    EXPECT_DOUBLE_EQ(volume.fraction(), 0.75);
    volume.free = 0;
    EXPECT_DOUBLE_EQ(volume.fraction(), 1.0);
}

TEST(VolumeInfo, ReadAgreesWithDf)
{
    test::TempTree tree;
    const std::string folder = tree.folder("some folder");
    const platform::SystemPaths noLabels{"/proc", tree.path("no-labels")};
    const auto volume = VolumeInfo::read(folder, noLabels);
    ASSERT_TRUE(volume);
    EXPECT_EQ(volume->path, folder);
    EXPECT_EQ(volume->id(), folder);
    EXPECT_EQ(volume->name, "some folder");

    const auto df = test::runProcess({"df", "-B1", "--output=size,avail", folder});
    ASSERT_EQ(df.exitCode, 0) << df.err;
    std::istringstream lines(df.out);
    std::string header;
    std::int64_t size = 0;
    std::int64_t avail = 0;
    std::getline(lines, header);
    ASSERT_TRUE(lines >> size >> avail) << df.out;
    EXPECT_EQ(volume->total, size);
    // Other programs write to the same disk in the meantime.
    EXPECT_NEAR(double(volume->free), double(avail), 256.0 * 1024 * 1024);
    EXPECT_EQ(volume->importantAvailable, volume->free);

    EXPECT_FALSE(VolumeInfo::read(tree.path("missing"), noLabels));
}

TEST(VolumeInfo, MountedKeepsDataVolumesWithTheirNames)
{
    test::TempTree tree;
    const std::string disk = tree.folder("media/my disk");
    const std::string plain = tree.folder("media/plain");
    const std::string hidden = tree.folder("media/hidden");
    const std::string pseudo = tree.folder("pseudo");
    const std::string cut = tree.folder("cut");
    const std::string hosts = tree.fileWithText("hosts", "127.0.0.1 localhost\n");
    const std::string device = tree.fileWithText("dev/sdz1", "");
    tree.symlink("../dev/sdz1", "labels/Backup\\x20Drive");
    tree.symlink("../dev/nothing", "labels/Dangling");

    const auto escaped = [](std::string path) {
        for (std::size_t at = 0; (at = path.find(' ', at)) != std::string::npos;)
            path.replace(at, 1, "\\040");
        return path;
    };
    tree.fileWithText("proc/self/mountinfo",
                      "27 1 254:0 / / rw,relatime shared:1 - ext4 /dev/root-device rw\n"
                      "22 27 0:21 / " +
                          pseudo +
                          " rw,relatime - proc proc rw\n"
                          "23 27 0:22 / " +
                          pseudo +
                          "/sys rw - sysfs sysfs rw\n"
                          "60 27 8:33 / " +
                          escaped(disk) + " rw,nosuid shared:5 - ext4 " + device +
                          " rw\n"
                          "61 27 8:34 / " +
                          plain +
                          " rw - xfs /dev/sdy1 rw\n"
                          "62 27 8:35 / " +
                          hidden +
                          " rw - ext4 /dev/sdx1 rw\n"
                          "63 62 0:40 / " +
                          hidden +
                          " rw - tmpfs tmpfs rw\n" // covers the line above
                          "64 27 8:36 /etc/hosts " +
                          hosts +
                          " rw - ext4 /dev/sdw1 rw\n"
                          "65 27 8:37 / " +
                          cut + " rw - ext4\n");
    const platform::SystemPaths system{tree.path("proc"), tree.path("labels")};
    const auto volumes = VolumeInfo::mounted(system);
    ASSERT_EQ(volumes.size(), 3u);
    EXPECT_EQ(volumes[0].path, "/");
    EXPECT_EQ(volumes[0].name, "System Disk");
    EXPECT_EQ(volumes[1].path, disk);
    EXPECT_EQ(volumes[1].name, "Backup Drive");
    EXPECT_EQ(volumes[2].path, plain);
    EXPECT_EQ(volumes[2].name, "plain");
    for (const auto& volume : volumes) {
        EXPECT_GT(volume.total, 0) << volume.path;
        EXPECT_LE(volume.free, volume.total) << volume.path;
    }

    // One path inside a labelled mount takes that label, and keeps its own path.
    const auto inside = VolumeInfo::read(tree.folder("media/my disk/photos"), system);
    ASSERT_TRUE(inside);
    EXPECT_EQ(inside->name, "Backup Drive");
    EXPECT_EQ(inside->path, disk + "/photos");

    // Without a mount table there is nothing to list.
    EXPECT_TRUE(VolumeInfo::mounted({tree.path("missing"), tree.path("labels")}).empty());
}
