#include <gtest/gtest.h>

#include "platform/ProcFs.h"

using namespace tarnbridge::platform;

TEST(ProcFs, CpuLineFoldsIntoFourCounters)
{
    // user nice system idle iowait irq softirq steal guest guest_nice
    const auto ticks = parseCpuTicks("cpu  100 7 50 1000 20 3 4 5 9 1\ncpu0 1 2 3 4 5 6 7 8 0 0\n");
    ASSERT_TRUE(ticks);
    EXPECT_EQ(ticks->user, 100u); // guest time is already part of user
    EXPECT_EQ(ticks->nice, 7u);
    EXPECT_EQ(ticks->system, 50u + 3 + 4 + 5);
    EXPECT_EQ(ticks->idle, 1000u + 20);

    // Only the aggregate line counts, wherever it is.
    const auto later = parseCpuTicks("intr 5\ncpu0 9 9 9 9 9\ncpu  1 2 3 4 5\n");
    ASSERT_TRUE(later);
    EXPECT_EQ(later->user, 1u);
    EXPECT_EQ(later->idle, 4u + 5);

    EXPECT_FALSE(parseCpuTicks("cpu0 1 2 3 4 5 6 7\n"));
    EXPECT_FALSE(parseCpuTicks("cpu  100 7 x 1000 2\n"));
    EXPECT_FALSE(parseCpuTicks("cpu  100 7 50\n")); // cut short
    EXPECT_FALSE(parseCpuTicks(""));
}

TEST(ProcFs, MeminfoNeedsTotalAndAvailable)
{
    const auto memory =
        parseMemInfo("MemTotal:       2000 kB\nMemFree:  10 kB\nMemAvailable:   500 kB\n"
                     "Cached:  300 kB\nUnevictable: 8 kB\nZswap: 4 kB\nHugePages_Total: 0\n");
    ASSERT_TRUE(memory);
    EXPECT_EQ(memory->total, 2000 * 1024);
    EXPECT_EQ(memory->available, 500 * 1024);
    EXPECT_EQ(memory->cached, 300 * 1024);
    EXPECT_EQ(memory->unevictable, 8 * 1024);
    EXPECT_EQ(memory->zswap, 4 * 1024);

    const auto noZswap = parseMemInfo("MemTotal: 2000 kB\nMemAvailable: 500 kB\n");
    ASSERT_TRUE(noZswap);
    EXPECT_EQ(noZswap->zswap, 0);
    EXPECT_EQ(noZswap->cached, 0);

    EXPECT_FALSE(parseMemInfo("MemTotal: 2000 kB\nMemFree: 10 kB\n"));
    EXPECT_FALSE(parseMemInfo("MemTotal: 2000 kB\nMemAvailable: 5x kB\n"));
    EXPECT_FALSE(parseMemInfo("MemTotal: 2000 kB\nMemAvailable:"));
}

TEST(ProcFs, OnlyPhysicalLinksAreCounted)
{
    for (const char* name :
         {"eth0", "enp3s0", "en10", "enx0c3796a1b2c3", "wlp2s0", "wlan0", "wwan0"})
        EXPECT_TRUE(isCountedLink(name)) << name;
    for (const char* name :
         {"lo", "docker0", "veth12ab", "tun0", "virbr0", "br-1", "utun0", "bond0", ""})
        EXPECT_FALSE(isCountedLink(name)) << name;
}

TEST(ProcFs, NetDevTotalsAndDamagedLines)
{
    const std::string header =
        "Inter-|   Receive                                                |  Transmit\n"
        " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs "
        "drop fifo "
        "colls carrier compressed\n";
    const auto totals = parseNetDev(header + "    lo: 999 1 0 0 0 0 0 0 999 1 0 0 0 0 0 0\n"
                                             "  eth0: 1000 5 0 0 0 0 0 0 200 3 0 0 0 0 0 0\n"
                                             "wlp2s0:30 1 0 0 0 0 0 0 4 1 0 0 0 0 0 0\n"
                                             "docker0: 77 1 0 0 0 0 0 0 77 1 0 0 0 0 0 0\n");
    ASSERT_TRUE(totals);
    EXPECT_EQ(totals->received, 1000u + 30);
    EXPECT_EQ(totals->sent, 200u + 4);

    // A counted line cut short fails the reading; an uncounted one does not matter.
    EXPECT_FALSE(parseNetDev(header + "  eth0: 1000 5 0 0 0 0\n"));
    EXPECT_FALSE(parseNetDev(header + "  eth0: 1000 5 0 0 0 0 0 0 2x0 3 0 0 0 0 0 0\n"));
    EXPECT_TRUE(parseNetDev(header + "  tun0: 1000 5\n"));
    EXPECT_FALSE(parseNetDev("garbage\n"));
    EXPECT_FALSE(parseNetDev(""));
}

TEST(ProcFs, ProcessStatSurvivesOddNamesAndRejectsCutLines)
{
    // Fields after comm: state, then utime at 14, stime at 15, starttime at 22.
    const std::string tail = " S 1 1 1 0 -1 4194560 100 0 0 0 25 17 0 0 20 0 1 0 4242 1000000 200 "
                             "18446744073709551615\n";
    const auto odd = parseProcessStat("321 (a) (b c)" + tail);
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->id, 321);
    EXPECT_EQ(odd->comm, "a) (b c");
    EXPECT_EQ(odd->cpuTicks, 25u + 17);
    EXPECT_EQ(odd->startTicks, 4242u);

    const auto newline = parseProcessStat("7 (two\nlines)" + tail);
    ASSERT_TRUE(newline);
    EXPECT_EQ(newline->comm, "two\nlines");

    const auto empty = parseProcessStat("8 ()" + tail);
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->comm, "");

    const std::string full = "321 (worker)" + tail;
    // A file cut anywhere before rss fails; in particular a start time cut to "42" is never
    // taken for a number.
    const std::size_t rssStart = full.find(" 200 ") + 1;
    for (std::size_t cut = 0; cut <= rssStart; ++cut)
        EXPECT_FALSE(parseProcessStat(full.substr(0, cut))) << full.substr(0, cut);
    const auto cutAfterStart = parseProcessStat(full.substr(0, rssStart + 1));
    ASSERT_TRUE(cutAfterStart);
    EXPECT_EQ(cutAfterStart->startTicks, 4242u);

    EXPECT_FALSE(parseProcessStat("x (a)" + tail));
    EXPECT_FALSE(
        parseProcessStat("5 (a) S 1 1 1 0 -1 4194560 100 0 0 0 2q 17 0 0 20 0 1 0 4242 1\n"));
    EXPECT_FALSE(parseProcessStat("5 a) (b" + tail)); // no opening parenthesis before the last ")"
}

TEST(ProcFs, StatmUptimeAndLoad)
{
    EXPECT_EQ(parseResidentPages("5000 1234 300 10 0 900 0\n"), 1234);
    EXPECT_FALSE(parseResidentPages("5000"));
    EXPECT_FALSE(parseResidentPages("5000 -1 0"));
    EXPECT_FALSE(parseResidentPages(""));

    EXPECT_DOUBLE_EQ(parseUptime("12345.67 54321.00\n").value_or(-1), 12345.67);
    EXPECT_FALSE(parseUptime("up\n"));
    EXPECT_FALSE(parseUptime(""));

    EXPECT_EQ(parseLoadAverages("0.52 1.50 2.25 1/467 12345\n"),
              (std::vector<double>{0.52, 1.5, 2.25}));
    EXPECT_EQ(parseLoadAverages("0.52 x 2.25\n"), std::vector<double>{0.52});
    EXPECT_TRUE(parseLoadAverages("").empty());
}

TEST(ProcFs, MountInfoFieldsAndEscapes)
{
    const auto mounts = parseMountInfo(
        "27 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw\n"
        "40 27 8:17 / /media/my\\040disk rw,nosuid shared:5 master:2 - ext4 /dev/sdb1 rw\n"
        "41 27 8:18 /@home /home rw - btrfs /dev/sdc2 rw,subvol=/@home\n"
        "42 27 0:50 / /mnt/cut rw,relatime - ext4\n"           // source and options lost
        "43 27 0:51 / /mnt/nosep rw,relatime ext4 /dev/x rw\n" // no separator
        "44 27 0:52 / /mnt/back\\134slash\\011tab rw - vfat /dev/sdd1 rw\n");
    ASSERT_EQ(mounts.size(), 4u);
    EXPECT_EQ(mounts[0].mountPoint, "/");
    EXPECT_EQ(mounts[0].type, "ext4");
    EXPECT_EQ(mounts[0].source, "/dev/vda");
    EXPECT_EQ(mounts[1].mountPoint, "/media/my disk");
    EXPECT_EQ(mounts[1].source, "/dev/sdb1");
    EXPECT_EQ(mounts[2].mountPoint, "/home");
    EXPECT_EQ(mounts[2].type, "btrfs");
    EXPECT_EQ(mounts[3].mountPoint, "/mnt/back\\slash\ttab");

    EXPECT_EQ(decodeMountField("a\\040b\\040"), "a b ");
    EXPECT_EQ(decodeMountField("a\\04"), "a\\04");   // incomplete escape stays as it is
    EXPECT_EQ(decodeMountField("a\\089"), "a\\089"); // not octal
    EXPECT_EQ(decodeMountField("a\\400"), "a\\400"); // beyond one byte

    for (const char* type :
         {"proc", "sysfs", "tmpfs", "devtmpfs", "cgroup2", "squashfs", "overlay", "autofs"})
        EXPECT_TRUE(isPseudoFileSystem(type)) << type;
    for (const char* type : {"ext4", "btrfs", "xfs", "vfat", "nfs4", "fuse.sshfs", "zfs", "ntfs3"})
        EXPECT_FALSE(isPseudoFileSystem(type)) << type;
}
