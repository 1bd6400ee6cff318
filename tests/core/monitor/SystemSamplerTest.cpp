#include <gtest/gtest.h>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "monitor/SystemSampler.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using namespace std::chrono_literals;

namespace {

const std::string kNetHeader =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop "
    "fifo colls carrier compressed\n";

std::string netLine(const std::string& name, std::uint64_t received, std::uint64_t sent)
{
    return name + ": " + std::to_string(received) + " 10 0 0 0 0 0 0 " + std::to_string(sent) +
           " 10 0 0 0 0 0 0\n";
}

std::string statLine(int pid, const std::string& comm, std::uint64_t utime, std::uint64_t stime,
                     std::uint64_t start)
{
    return std::to_string(pid) + " (" + comm + ") S 1 1 1 0 -1 4194560 100 0 0 0 " +
           std::to_string(utime) + " " + std::to_string(stime) + " 0 0 20 0 1 0 " +
           std::to_string(start) +
           " 1000000 200 18446744073709551615 1 1 0 0 0 0 0 0 0 0 0 0 17 0 0 0 0 0 0\n";
}

// A copy of the few /proc files the sampler reads, with a clock the test moves by hand.
class CannedSystem : public ::testing::Test {
protected:
    CannedSystem()
    {
        tree.folder("proc/self");
        writeStat(1000, 10, 500, 8000, 100, 20, 30, 0);
        tree.fileWithText("proc/meminfo",
                          "MemTotal: 8000000 kB\nMemFree: 1000000 kB\nMemAvailable: 3000000 kB\n"
                          "Cached: 2000000 kB\nUnevictable: 4000 kB\nZswap: 16000 kB\n");
        tree.fileWithText("proc/uptime", "3600.50 7000.00\n");
        tree.fileWithText("proc/loadavg", "0.50 0.75 1.25 2/300 4000\n");
        tree.fileWithText("proc/net/dev",
                          kNetHeader + netLine("lo", 5000, 5000) + netLine("eth0", 1000000, 20000));
        tree.fileWithText("proc/self/mountinfo", "");
    }

    platform::SystemPaths paths() const { return {tree.path("proc"), tree.path("no-labels")}; }
    SystemSampler sampler() const
    {
        return SystemSampler(paths(), [this] { return now; });
    }

    void writeStat(std::uint64_t user, std::uint64_t nice, std::uint64_t system, std::uint64_t idle,
                   std::uint64_t iowait, std::uint64_t irq, std::uint64_t softirq,
                   std::uint64_t steal)
    {
        const auto n = [](std::uint64_t v) { return " " + std::to_string(v); };
        tree.fileWithText("proc/stat", "cpu " + n(user) + n(nice) + n(system) + n(idle) +
                                           n(iowait) + n(irq) + n(softirq) + n(steal) +
                                           " 0 0\ncpu0 1 1 1 1 1 1 1 1 0 0\n"
                                           "intr 12345\nctxt 999\n");
    }
    void writeProcess(int pid, const std::string& comm, std::uint64_t utime, std::uint64_t stime,
                      std::uint64_t start, std::int64_t residentPages)
    {
        const std::string dir = "proc/" + std::to_string(pid);
        tree.fileWithText(dir + "/stat", statLine(pid, comm, utime, stime, start));
        tree.fileWithText(dir + "/statm",
                          "9000 " + std::to_string(residentPages) + " 100 10 0 500 0\n");
    }

    test::TempTree tree;
    std::chrono::steady_clock::time_point now{std::chrono::hours(1000)};
    const double pageSize = double(::sysconf(_SC_PAGESIZE));
    const double ticksPerSecond = double(::sysconf(_SC_CLK_TCK));
};

const ProcessInfoRow* findRow(const MonitorSample& sample, int id)
{
    const auto it = std::find_if(sample.processes.begin(), sample.processes.end(),
                                 [id](const ProcessInfoRow& row) { return row.id == id; });
    return it == sample.processes.end() ? nullptr : &*it;
}

} // namespace

TEST_F(CannedSystem, FirstReadingHasLevelsButNoRates)
{
    writeProcess(10, "busy", 500, 100, 77, 300);
    auto s = sampler();
    const MonitorSample first = s.sample();
    EXPECT_TRUE(first.issues.empty()) << first.issues.front();
    EXPECT_EQ(first.cpu, 0);
    EXPECT_EQ(first.userCPU, 0);
    EXPECT_EQ(first.systemCPU, 0);
    EXPECT_EQ(first.download, 0);
    EXPECT_EQ(first.upload, 0);
    EXPECT_EQ(first.received, 0);
    EXPECT_EQ(first.sent, 0);
    ASSERT_EQ(first.processes.size(), 1u);
    EXPECT_EQ(first.processes[0].cpu, 0);
    EXPECT_EQ(first.processes[0].memory, std::int64_t(300 * pageSize));
    // Levels need no earlier reading.
    EXPECT_DOUBLE_EQ(first.uptime, 3600.5);
    EXPECT_EQ(first.loadAverages, (std::vector<double>{0.5, 0.75, 1.25}));
    EXPECT_EQ(first.memoryTotal, 8000000 * 1024LL);
    EXPECT_EQ(first.memoryUsed, (8000000 - 3000000) * 1024LL);
    EXPECT_EQ(first.cached, 2000000 * 1024LL);
    EXPECT_EQ(first.wired, 4000 * 1024LL);
    EXPECT_EQ(first.compressed, 16000 * 1024LL);

    // A second sampler starts over, whatever the first has seen.
    now += 2s;
    writeStat(2000, 10, 500, 8000, 100, 20, 30, 0);
    EXPECT_GT(s.sample().cpu, 0);
    EXPECT_EQ(sampler().sample().cpu, 0);
}

TEST_F(CannedSystem, ProcessorSharesFromTwoReadings)
{
    auto s = sampler();
    s.sample();
    // user +300, nice +20, system +60 (+40 system, +10 irq, +5 softirq, +5 steal),
    // idle +620 (+600 idle, +20 iowait).
    writeStat(1300, 30, 540, 8600, 120, 30, 35, 5);
    const MonitorSample second = s.sample();
    const double total = 300 + 20 + 60 + 620;
    EXPECT_DOUBLE_EQ(second.userCPU, 300 / total * 100);
    EXPECT_DOUBLE_EQ(second.systemCPU, 60 / total * 100);
    // Nice time is busy time, but neither user nor system.
    EXPECT_DOUBLE_EQ(second.cpu, (300 + 60 + 20) / total * 100);
    EXPECT_GT(second.cpu, second.userCPU + second.systemCPU);

    // Unchanged counters: nothing to divide, all three 0.
    const MonitorSample still = s.sample();
    EXPECT_EQ(still.cpu, 0);
    EXPECT_EQ(still.userCPU, 0);
    EXPECT_EQ(still.systemCPU, 0);

    // iowait can step back on Linux; that position counts as no change, the others still do.
    writeStat(1400, 30, 540, 8600, 50, 30, 35, 5);
    const MonitorSample dip = s.sample();
    EXPECT_DOUBLE_EQ(dip.userCPU, 100);
    EXPECT_DOUBLE_EQ(dip.cpu, 100);
}

TEST_F(CannedSystem, FailedSourcesLeaveIssuesAndKeepTheirPast)
{
    auto s = sampler();
    s.sample();
    tree.remove("proc/stat");
    tree.fileWithText("proc/meminfo", "MemTotal: 8000000 kB\n");
    tree.fileWithText("proc/net/dev", kNetHeader + "  eth0: 1000 5 0\n");
    now += 1s;
    const MonitorSample broken = s.sample();
    EXPECT_EQ(broken.issues, (std::vector<std::string>{"CPU statistics are unavailable.",
                                                       "Memory statistics are unavailable.",
                                                       "Network statistics are unavailable."}));
    EXPECT_EQ(broken.cpu, 0);
    EXPECT_EQ(broken.memoryUsed, 0);
    EXPECT_EQ(broken.cached, 0);
    EXPECT_EQ(broken.download, 0);
    // The installed memory is known from the kernel even so.
    EXPECT_EQ(broken.memoryTotal, std::int64_t(::sysconf(_SC_PHYS_PAGES)) * std::int64_t(pageSize));
    EXPECT_DOUBLE_EQ(broken.uptime, 3600.5); // the other sources went on

    // Rates resume against the last good reading, over the whole time since then.
    writeStat(1100, 10, 500, 8100, 100, 20, 30, 0);
    tree.fileWithText("proc/net/dev", kNetHeader + netLine("eth0", 1000000 + 9000, 20000 + 300));
    now += 2s;
    const MonitorSample back = s.sample();
    EXPECT_EQ(back.issues, std::vector<std::string>{"Memory statistics are unavailable."});
    EXPECT_DOUBLE_EQ(back.userCPU, 50);
    EXPECT_EQ(back.download, 9000 / 3);
    EXPECT_EQ(back.upload, 300 / 3);
    EXPECT_EQ(back.received, 9000);
}

TEST_F(CannedSystem, MissingRootIsReportedPerSource)
{
    SystemSampler s({tree.path("nowhere"), tree.path("no-labels")});
    const MonitorSample sample = s.sample();
    EXPECT_EQ(sample.issues, (std::vector<std::string>{"CPU statistics are unavailable.",
                                                       "Memory statistics are unavailable.",
                                                       "Network statistics are unavailable.",
                                                       "No such file or directory"}));
    EXPECT_TRUE(sample.processes.empty());
    EXPECT_TRUE(sample.volumes.empty());
    EXPECT_TRUE(sample.loadAverages.empty());
    EXPECT_EQ(sample.uptime, 0);
}

TEST_F(CannedSystem, NetworkRatesFromPhysicalLinks)
{
    auto s = sampler();
    tree.fileWithText("proc/net/dev", kNetHeader + netLine("lo", 5000, 5000) +
                                          netLine("eth0", 1000000, 20000) +
                                          netLine("wlp2s0", 300, 40) + netLine("docker0", 0, 0) +
                                          netLine("enx0c3796a1b2c3", 0, 0));
    s.sample();
    tree.fileWithText("proc/net/dev", kNetHeader + netLine("lo", 99000, 99000) +
                                          netLine("eth0", 1000000 + 4000, 20000 + 600) +
                                          netLine("wlp2s0", 300 + 1000, 40 + 2) +
                                          netLine("docker0", 7777, 7777) +
                                          netLine("enx0c3796a1b2c3", 1001, 0));
    now += 2s;
    const MonitorSample second = s.sample();
    const std::int64_t in = 4000 + 1000 + 1001;
    const std::int64_t out = 600 + 2;
    EXPECT_EQ(second.download, in / 2);
    EXPECT_EQ(second.upload, out / 2);
    EXPECT_EQ(second.received, in);
    EXPECT_EQ(second.sent, out);

    // The Wi-Fi link goes away: the received total falls, so no download and nothing added.
    // Sent bytes still grew past what the Wi-Fi link had sent: each direction stands alone.
    tree.fileWithText("proc/net/dev", kNetHeader + netLine("eth0", 1000000 + 4500, 20000 + 700) +
                                          netLine("enx0c3796a1b2c3", 1001, 0));
    now += 2s;
    const MonitorSample dropped = s.sample();
    EXPECT_EQ(dropped.download, 0);
    EXPECT_EQ(dropped.received, in);
    const std::int64_t sentMore = (20000 + 700) - (20000 + 600 + 40 + 2);
    EXPECT_EQ(dropped.upload, sentMore / 2);
    EXPECT_EQ(dropped.sent, out + sentMore);

    // The next interval is measured from the lower total.
    tree.fileWithText("proc/net/dev", kNetHeader + netLine("eth0", 1000000 + 5500, 20000 + 700) +
                                          netLine("enx0c3796a1b2c3", 1001, 0));
    now += 1ms; // a moment later counts as a hundredth of a second
    const MonitorSample quick = s.sample();
    EXPECT_EQ(quick.download, 1000 * 100);
    EXPECT_EQ(quick.received, in + 1000);
    EXPECT_EQ(quick.upload, 0);
}

TEST_F(CannedSystem, ProcessesRankedByCpuSinceLastReading)
{
    writeProcess(1, "systemd", 100, 50, 1, 2000);
    writeProcess(200, "a) (b c", 1000, 0, 500, 100);
    writeProcess(300, "idle twin", 10, 10, 600, 50);
    writeProcess(301, "idle twin", 10, 10, 601, 60);
    writeProcess(400, "reused", 100, 100, 700, 10);
    writeProcess(500, "rewound", 100, 100, 800, 10);
    writeProcess(600, "cut short", 1, 1, 900, 10);
    tree.fileWithText("proc/600/stat",
                      statLine(600, "cut short", 1, 1, 900).substr(0, 60)); // truncated
    tree.fileWithText("proc/700/stat", statLine(700, "gone", 1, 1, 900));   // statm vanished
    tree.fileWithText("proc/800/stat", statLine(801, "not me", 1, 1, 900)); // wrong pid
    tree.folder("proc/900");                                                // ended already
    tree.fileWithText("proc/self/stat", statLine(42, "self", 1, 1, 1));
    auto s = sampler();
    const MonitorSample first = s.sample();
    ASSERT_EQ(first.processes.size(), 6u);
    // No rates yet: all equal, so pid order stands.
    EXPECT_EQ(first.processes[0].id, 1);
    EXPECT_EQ(first.processes[1].id, 200);
    EXPECT_EQ(first.processes[1].name, "a) (b c");
    EXPECT_EQ(first.processes[5].id, 500);

    writeProcess(1, "systemd", 100 + 10, 50 + 10, 1, 2000); // +20 ticks
    writeProcess(200, "a) (b c", 1000 + 250, 0, 500, 120);  // +250 ticks: more than one core
    writeProcess(400, "reused", 300, 300, 999, 10);         // same pid, another process, more time
    writeProcess(500, "rewound", 50, 50, 800, 10);          // times fell
    writeProcess(1000, "newcomer", 400, 400, 1000, 10);
    now += 2s;
    const MonitorSample second = s.sample();
    std::vector<int> order;
    for (const auto& row : second.processes)
        order.push_back(row.id);
    // Busiest first; the rest at 0 keep pid order.
    EXPECT_EQ(order, (std::vector<int>{200, 1, 300, 301, 400, 500, 1000}));
    const double seconds = 2;
    EXPECT_DOUBLE_EQ(second.processes[0].cpu, 250 / ticksPerSecond / seconds * 100);
    EXPECT_DOUBLE_EQ(second.processes[1].cpu, 20 / ticksPerSecond / seconds * 100);
    EXPECT_EQ(second.processes[0].memory, std::int64_t(120 * pageSize));
    EXPECT_EQ(findRow(second, 400)->cpu, 0);
    EXPECT_EQ(findRow(second, 500)->cpu, 0);
    EXPECT_EQ(findRow(second, 1000)->cpu, 0);
}

TEST_F(CannedSystem, MissingProcessTableIsOneIssue)
{
    auto s = SystemSampler({tree.path("proc"), tree.path("no-labels")}, [this] { return now; });
    tree.chmod("proc", 0300); // files still open by path, the listing fails
    test::WithoutAdminRights user;
    const MonitorSample sample = s.sample();
    tree.chmod("proc", 0700);
    EXPECT_EQ(sample.issues, std::vector<std::string>{"Permission denied"});
    EXPECT_TRUE(sample.processes.empty());
    EXPECT_DOUBLE_EQ(sample.uptime, 3600.5);
}

TEST(Snapshots, SnapperThenTimeshiftOldestFirst)
{
    test::TempTree volume;
    for (const char* name : {"10", "2", "1"})
        volume.folder(std::string(".snapshots/") + name + "/snapshot");
    volume.fileWithText(".snapshots/.snapper-lock", "");
    volume.fileWithText(".snapshots/notes", "not a snapshot");
    volume.folder("timeshift/snapshots/2024-05-01_10-00-01");
    volume.folder("timeshift/snapshots/2023-12-31_23-00-00");
    EXPECT_EQ(
        SystemSampler::timeMachineSnapshots(volume.root()),
        (std::vector<std::string>{"1", "2", "10", "2023-12-31_23-00-00", "2024-05-01_10-00-01"}));

    // Unreadable folders hold nothing we can show; no error either.
    volume.chmod(".snapshots", 0);
    volume.remove("timeshift");
    {
        test::WithoutAdminRights user;
        EXPECT_TRUE(SystemSampler::timeMachineSnapshots(volume.root()).empty());
    }
    test::TempTree bare;
    EXPECT_TRUE(SystemSampler::timeMachineSnapshots(bare.root()).empty());
}

namespace {
// A child process, renamed, that burns CPU for a while each time it is asked to.
class BusyChild {
public:
    explicit BusyChild(const char* name)
    {
        if (::pipe(toChild_) != 0 || ::pipe(fromChild_) != 0)
            throw std::runtime_error("pipe");
        pid_ = ::fork();
        if (pid_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::prctl(PR_SET_NAME, name);
            char c = 0;
            (void)!::write(fromChild_[1], "r", 1);
            while (::read(toChild_[0], &c, 1) == 1) {
                timespec start{};
                timespec now{};
                ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &start);
                do
                    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
                while ((now.tv_sec - start.tv_sec) * 1000000000L + (now.tv_nsec - start.tv_nsec) <
                       80000000L);
                (void)!::write(fromChild_[1], "d", 1);
            }
            ::_exit(0);
        }
        awaitReply();
    }
    ~BusyChild()
    {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    int pid() const { return pid_; }
    void burn()
    {
        (void)!::write(toChild_[1], "b", 1);
        awaitReply();
    }

private:
    void awaitReply()
    {
        char c = 0;
        (void)!::read(fromChild_[0], &c, 1);
    }
    int toChild_[2] = {-1, -1};
    int fromChild_[2] = {-1, -1};
    pid_t pid_ = -1;
};
} // namespace

TEST(RealSystem, SeesAProcessWithAnAwkwardNameAndItsWork)
{
    BusyChild child("a) (b c");
    SystemSampler sampler;
    const MonitorSample before = sampler.sample();
    const ProcessInfoRow* row = findRow(before, child.pid());
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->name, "a) (b c");
    EXPECT_GT(row->memory, 0);
    EXPECT_NE(findRow(before, ::getpid()), nullptr);
    EXPECT_GT(before.memoryTotal, 0);
    EXPECT_EQ(before.memoryTotal,
              std::int64_t(::sysconf(_SC_PHYS_PAGES)) * ::sysconf(_SC_PAGESIZE));
    EXPECT_GT(before.uptime, 0);

    child.burn(); // 80 ms of its own CPU time, at least 8 ticks
    const MonitorSample after = sampler.sample();
    row = findRow(after, child.pid());
    ASSERT_NE(row, nullptr);
    EXPECT_GT(row->cpu, 0);
    EXPECT_GT(after.cpu, 0);
    EXPECT_TRUE(std::is_sorted(
        after.processes.begin(), after.processes.end(),
        [](const ProcessInfoRow& a, const ProcessInfoRow& b) { return a.cpu > b.cpu; }));
}
