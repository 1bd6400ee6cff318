#include <gtest/gtest.h>

#include <QComboBox>
#include <QProgressBar>

#include <atomic>
#include <mutex>

#include "ToolsFixture.h"
#include "app/model/ActivityMonitor.h"
#include "app/tools/MonitorScreen.h"
#include "app/tools/Sparkline.h"
#include "app/tools/ToolWidgets.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using namespace tarnbridge::test;

namespace {

// Readings made up in advance; the last repeats.
struct CannedMachine {
    std::mutex mutex;
    std::vector<MonitorSample> samples;
    std::size_t next = 0;
    std::vector<std::string> snapshots;

    MonitorSample read()
    {
        std::lock_guard lock(mutex);
        const MonitorSample sample = samples.at(std::min(next, samples.size() - 1));
        ++next;
        return sample;
    }
};

MonitorSample sample(double cpu, int processes)
{
    MonitorSample s;
    s.cpu = cpu;
    s.userCPU = 12.5;
    s.systemCPU = 3;
    s.loadAverages = {1.25, 0.5, 0.25};
    s.memoryUsed = 6'000'000'000;
    s.memoryTotal = 16'000'000'000;
    s.wired = 700'000'000;
    s.compressed = 0;
    s.cached = 2'500'000'000;
    s.download = 125'000;
    s.upload = 4'000;
    s.received = 90'000'000;
    s.sent = 3'000'000;
    for (int i = 0; i < processes; ++i)
        // Busiest first; memory grows down the list, so the last is the largest.
        s.processes.push_back({1000 + i, "proc" + std::to_string(i), double(processes - i), std::int64_t(i + 1) * 1'000'000});
    s.volumes = {{"/", "System Disk", 500'000'000'000, 125'000'000'000, 125'000'000'000},
                 {"/media/usb", "USB", 64'000'000'000, 60'000'000'000, 60'000'000'000}};
    return s;
}

struct MonitorFixture : ToolsFixture {
    std::shared_ptr<CannedMachine> machine;

    explicit MonitorFixture(std::shared_ptr<CannedMachine> canned) : ToolsFixture(services(canned)), machine(canned) {}
    MonitorScreen& screen() { return ToolsFixture::screen<MonitorScreen>(); }
    // Runs the monitor until `count` readings have arrived; a long pause keeps it at one.
    bool readings(std::size_t count)
    {
        app().monitor().setPeriod(std::chrono::milliseconds(count == 1 ? 60'000 : 1));
        app().monitor().start();
        const bool reached = waitUntil([&] { return app().monitor().history().size() >= count; });
        app().monitor().stopWork();
        app().monitorPool().waitForDone();
        QCoreApplication::processEvents();
        return reached;
    }

private:
    static AppServices services(const std::shared_ptr<CannedMachine>& canned)
    {
        AppServices services;
        services.makeSampler = [canned] { return std::function<MonitorSample()>([canned] { return canned->read(); }); };
        services.systemSnapshots = [canned](const std::string&) { return canned->snapshots; };
        return services;
    }
};

QStringList processNames(const QTreeWidget* list)
{
    QStringList out;
    for (int row = 0; row < list->topLevelItemCount(); ++row)
        if (!list->topLevelItem(row)->isHidden())
            out << list->topLevelItem(row)->text(0);
    return out;
}

} // namespace

TEST(MonitorScreen, TilesShowTheLatestReadingAndChartsTheHistory)
{
    auto machine = std::make_shared<CannedMachine>();
    machine->samples = {sample(10, 3), sample(20, 3), sample(45.25, 3)};
    MonitorFixture f(machine);
    f.app().setSection(AppSection::monitor);
    MonitorScreen& screen = f.screen();
    // Before any reading: zeros, and no chart.
    EXPECT_EQ(screen.cpuTile()->figure(), QStringLiteral("0.0%"));
    EXPECT_TRUE(screen.cpuTile()->sparkline()->values().empty());

    ASSERT_TRUE(f.readings(1));
    EXPECT_EQ(screen.cpuTile()->figure(), QStringLiteral("10.0%"));
    EXPECT_EQ(screen.cpuTile()->sparkline()->values().size(), 1u); // one value draws nothing

    ASSERT_TRUE(f.readings(3));
    const auto& history = f.app().monitor().history();
    const MonitorSample& last = history.back();
    EXPECT_EQ(screen.cpuTile()->figure(), QString::asprintf("%.1f%%", last.cpu));
    EXPECT_EQ(screen.cpuTile()->sparkline()->values().size(), history.size());
    EXPECT_EQ(screen.cpuTile()->sparkline()->values().back(), last.cpu);
    EXPECT_EQ(screen.smallFigures(screen.cpuTile()),
              (QStringList{QStringLiteral("USER 12.5%"), QStringLiteral("SYSTEM 3.0%"), QStringLiteral("LOAD 1.25")}));
    const QStringList shown = labels(&screen);
    EXPECT_TRUE(shown.contains(QStringLiteral("Load (1 / 5 / 15 min): 1.25 / 0.50 / 0.25")));

    using ToolWidgets::bytes;
    EXPECT_EQ(screen.memoryTile()->figure(), bytes(6'000'000'000));
    EXPECT_EQ(screen.smallFigures(screen.memoryTile()),
              (QStringList{QStringLiteral("WIRED ") + bytes(700'000'000), QStringLiteral("COMPRESSED ") + bytes(0),
                           QStringLiteral("TOTAL ") + bytes(16'000'000'000)}));
    EXPECT_TRUE(shown.contains(QStringLiteral("File-backed pages: ") + bytes(2'500'000'000)));
    EXPECT_EQ(screen.networkTile()->figure(), bytes(125'000));
    EXPECT_EQ(screen.smallFigures(screen.networkTile()),
              (QStringList{QStringLiteral("DOWN ") + bytes(125'000), QStringLiteral("UP ") + bytes(4'000),
                           QStringLiteral("SESSION IN ") + bytes(90'000'000)}));
    EXPECT_TRUE(shown.contains(QStringLiteral("This session: ") + bytes(90'000'000) + QStringLiteral(" received · ") +
                               bytes(3'000'000) + QStringLiteral(" sent")));
    // Volumes in the order given, with their bars.
    EXPECT_TRUE(shown.contains(QStringLiteral("System Disk")));
    EXPECT_TRUE(shown.contains(bytes(125'000'000'000) + QStringLiteral(" free")));
    EXPECT_TRUE(shown.contains(bytes(60'000'000'000) + QStringLiteral(" free")));
    QStringList bars;
    for (QProgressBar* bar : screen.storageTile()->findChildren<QProgressBar*>())
        bars << bar->accessibleName() + QLatin1Char('=') + QString::number(bar->value());
    EXPECT_EQ(bars, (QStringList{QStringLiteral("System Disk=750"), QStringLiteral("USB=63")}));
    EXPECT_TRUE(shown.contains(QStringLiteral(
        "Charts show 60 samples. Memory includes active, wired and compressed pages. Network covers Ethernet and "
        "Wi-Fi. Process CPU can exceed 100% across multiple cores; process memory is resident size.")));
}

TEST(MonitorScreen, TheProcessListShowsFortyRowsByCpuOrByMemory)
{
    auto machine = std::make_shared<CannedMachine>();
    machine->samples = {sample(5, 55)};
    MonitorFixture f(machine);
    f.app().setSection(AppSection::monitor);
    MonitorScreen& screen = f.screen();
    ASSERT_TRUE(f.readings(1));

    struct Case {
        int order;
        QString title;
        QString first;
        QString last;
    };
    const std::vector<Case> cases = {
        {0, QStringLiteral("Top processes by CPU"), QStringLiteral("proc0"), QStringLiteral("proc39")},
        {1, QStringLiteral("Top processes by memory"), QStringLiteral("proc54"), QStringLiteral("proc15")},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.title.toStdString());
        screen.processOrder()->setCurrentIndex(test.order);
        const QStringList names = processNames(screen.processList());
        ASSERT_EQ(names.size(), 40);
        EXPECT_EQ(names.front(), test.first);
        EXPECT_EQ(names.back(), test.last);
        EXPECT_TRUE(labels(&screen).contains(test.title));
        EXPECT_TRUE(labels(&screen).contains(QStringLiteral("40 shown")));
    }
    const QTreeWidgetItem* top = screen.processList()->topLevelItem(0);
    EXPECT_EQ(top->text(1), QStringLiteral("1.0%")); // proc54: the least busy, the most memory
    EXPECT_EQ(top->text(2), ToolWidgets::bytes(55'000'000));
}

TEST(MonitorScreen, TheSystemSnapshotsLineSaysWhatTheSystemKeeps)
{
    for (const bool some : {false, true}) {
        SCOPED_TRACE(some ? "snapshots" : "none");
        auto machine = std::make_shared<CannedMachine>();
        machine->samples = {sample(1, 1)};
        if (some)
            machine->snapshots = {"1", "2"};
        MonitorFixture f(machine);
        f.app().setSection(AppSection::monitor); // the list is read when the screen is first shown
        ASSERT_TRUE(waitUntil([&] { return f.app().monitor().timeMachineStatus() != QStringLiteral("Reading local snapshots…") &&
                                           !f.app().monitor().timeMachineStatus().isEmpty(); }));
        const QStringList shown = labels(&f.screen());
        EXPECT_TRUE(shown.contains(some ? QStringLiteral("The system manages these separately from your files.")
                                        : QStringLiteral("No local system snapshots found.")))
            << shown.join(u'|').toStdString();
        EXPECT_EQ(shown.contains(QStringLiteral("1 · 2")), some);
    }
}
