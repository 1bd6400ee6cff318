#include <gtest/gtest.h>

#include <QCoreApplication>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "../model/AppFixture.h"
#include "app/model/ActivityMonitor.h"
#include "model/Errors.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using namespace std::chrono_literals;
using tarnbridge::test::AppFixture;
using tarnbridge::test::spin;
using tarnbridge::test::waitUntil;
using Clock = std::chrono::steady_clock;

namespace {

// Stands in for the machine. Reading n has cpu n. Readings from `gateFrom` on wait until the
// gate opens, so a test controls how long a reading takes without sleeping.
struct FakeSampler {
    std::mutex mutex;
    std::condition_variable wake;
    int gateFrom = 0; // 0: no reading waits
    int failAt = 0;   // this reading throws
    bool open = false;
    int made = 0; // sources made (GUI thread)
    int calls = 0;
    int active = 0;
    int mostActive = 0;
    std::vector<Clock::time_point> starts;

    MonitorSample read()
    {
        std::unique_lock lock(mutex);
        const int n = ++calls;
        starts.push_back(Clock::now());
        mostActive = std::max(mostActive, ++active);
        wake.wait(lock, [&] { return open || gateFrom == 0 || n < gateFrom; });
        --active;
        if (n == failAt)
            throw std::runtime_error("reading failed");
        MonitorSample sample;
        sample.cpu = n;
        return sample;
    }
    void release()
    {
        std::lock_guard lock(mutex);
        open = true;
        wake.notify_all();
    }
    int started()
    {
        std::lock_guard lock(mutex);
        return calls;
    }
};

AppServices servicesFor(const std::shared_ptr<FakeSampler>& fake)
{
    AppServices services;
    services.makeSampler = [fake] {
        ++fake->made;
        return std::function<MonitorSample()>([fake] { return fake->read(); });
    };
    return services;
}

// Opens the gate before the model goes, since the model waits for the readings it started.
struct OpenAtEnd {
    std::shared_ptr<FakeSampler> fake;
    ~OpenAtEnd() { fake->release(); }
};

void drain(AppModel& app)
{
    app.workPool().waitForDone();
    for (int i = 0; i < 3; ++i)
        QCoreApplication::processEvents();
}

} // namespace

TEST(ActivityMonitor, HistoryKeepsTheLatestSixtyReadingsOldestFirst)
{
    auto fake = std::make_shared<FakeSampler>();
    fake->gateFrom = 62; // the loop stops for good after 61 readings
    AppFixture f(servicesFor(fake));
    OpenAtEnd guard{fake};
    ActivityMonitor& monitor = f.app().monitor();
    EXPECT_FALSE(monitor.running()) << "tests make models with the monitor off";
    EXPECT_TRUE(monitor.history().empty());
    EXPECT_EQ(monitor.sample().cpu, 0);
    EXPECT_EQ(fake->made, 0);

    monitor.setPeriod(1ms);
    monitor.start();
    EXPECT_TRUE(monitor.running());
    ASSERT_TRUE(waitUntil([&] { return monitor.sample().cpu == 61; }));
    ASSERT_EQ(monitor.history().size(), ActivityMonitor::kHistoryLimit);
    for (std::size_t i = 0; i < monitor.history().size(); ++i)
        EXPECT_EQ(monitor.history()[i].cpu, double(i + 2)) << "position " << i;
    EXPECT_EQ(fake->made, 1) << "one source for the whole run";
}

TEST(ActivityMonitor, ASlowReadingStretchesThePeriodAndReadingsNeverOverlap)
{
    auto fake = std::make_shared<FakeSampler>();
    fake->gateFrom = 2;
    std::vector<Clock::time_point> arrivals; // outlives the model that reports into it
    AppFixture f(servicesFor(fake));
    OpenAtEnd guard{fake};
    ActivityMonitor& monitor = f.app().monitor();
    const auto period = 100ms;
    monitor.setPeriod(period);
    QObject::connect(&monitor, &ActivityMonitor::changed, [&] { arrivals.push_back(Clock::now()); });

    monitor.start();
    ASSERT_TRUE(waitUntil([&] { return fake->started() == 2; }));
    // The second reading hangs for several periods: nothing else starts, nothing piles up.
    spin(int(4 * period.count()));
    EXPECT_EQ(fake->started(), 2);
    EXPECT_EQ(monitor.history().size(), 1u);

    fake->release();
    ASSERT_TRUE(waitUntil([&] { return monitor.history().size() >= 5; }));
    std::lock_guard lock(fake->mutex);
    EXPECT_EQ(fake->mostActive, 1);
    // Each pause is counted from the arrival of the reading before (a precise timer: no
    // early shots; a little slack for the clock reads).
    for (std::size_t i = 1; i < 5; ++i)
        EXPECT_GE(fake->starts[i] - arrivals[i - 1], period - 2ms) << "reading " << i + 1;
    EXPECT_GE(fake->starts[2] - fake->starts[1], 5 * period - 2ms) << "the slow reading stretched its period";
}

TEST(ActivityMonitor, ASecondStartChangesNothingAndAStopDropsTheReadingOnItsWay)
{
    auto fake = std::make_shared<FakeSampler>();
    fake->gateFrom = 1;
    AppFixture f(servicesFor(fake));
    OpenAtEnd guard{fake};
    ActivityMonitor& monitor = f.app().monitor();
    monitor.setPeriod(1h);

    monitor.start();
    ASSERT_TRUE(waitUntil([&] { return fake->started() == 1; }));
    monitor.start(); // during a reading
    spin(50);
    EXPECT_EQ(fake->started(), 1);
    EXPECT_EQ(fake->made, 1);

    monitor.stopWork();
    EXPECT_FALSE(monitor.running());
    fake->release();
    drain(f.app());
    EXPECT_TRUE(monitor.history().empty()) << "a stopped loop takes nothing more";
    EXPECT_EQ(monitor.sample().cpu, 0);

    monitor.start();
    ASSERT_TRUE(waitUntil([&] { return monitor.history().size() == 1; }));
    EXPECT_EQ(monitor.sample().cpu, 2);
    EXPECT_EQ(fake->made, 2) << "a new run has a source of its own";
    monitor.start(); // during the pause
    drain(f.app());
    EXPECT_EQ(fake->started(), 2);
    EXPECT_EQ(fake->made, 2);
    EXPECT_EQ(monitor.history().size(), 1u);
}

TEST(ActivityMonitor, AReadingThatFailsIsSkippedAndTheLoopGoesOn)
{
    auto fake = std::make_shared<FakeSampler>();
    fake->failAt = 2;
    fake->gateFrom = 4;
    AppFixture f(servicesFor(fake));
    OpenAtEnd guard{fake};
    ActivityMonitor& monitor = f.app().monitor();
    monitor.setPeriod(1ms);
    monitor.start();
    ASSERT_TRUE(waitUntil([&] { return monitor.sample().cpu == 3; }));
    ASSERT_EQ(monitor.history().size(), 2u);
    EXPECT_EQ(monitor.history()[0].cpu, 1);
    EXPECT_EQ(monitor.history()[1].cpu, 3);
}

TEST(ActivityMonitor, SystemSnapshotsAreListedInTheBackground)
{
    struct Listing {
        std::mutex mutex;
        std::vector<std::string> names;
        bool fail = false;
        std::vector<std::string> volumes;
        std::thread::id thread;
    };
    auto listing = std::make_shared<Listing>();
    AppServices services;
    services.systemSnapshots = [listing](const std::string& volume) {
        std::lock_guard lock(listing->mutex);
        listing->volumes.push_back(volume);
        listing->thread = std::this_thread::get_id();
        if (listing->fail)
            throw TarnbridgeError("Snapshots could not be listed.");
        return listing->names;
    };
    AppFixture f(services);
    ActivityMonitor& monitor = f.app().monitor();
    const QString reading = QStringLiteral("Reading local snapshots…");
    auto refresh = [&] {
        monitor.refreshTimeMachine();
        EXPECT_EQ(monitor.timeMachineStatus(), reading);
        return waitUntil([&] { return monitor.timeMachineStatus() != reading; });
    };

    ASSERT_TRUE(refresh());
    EXPECT_TRUE(monitor.timeMachine().empty());
    EXPECT_EQ(monitor.timeMachineStatus(), QStringLiteral("No local system snapshots found."));
    {
        std::lock_guard lock(listing->mutex);
        EXPECT_EQ(listing->volumes, std::vector<std::string>{"/"});
        EXPECT_NE(listing->thread, std::this_thread::get_id()) << "never on the GUI thread";
        listing->names = {"1", "2"};
    }

    ASSERT_TRUE(refresh());
    EXPECT_EQ(monitor.timeMachine(), (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(monitor.timeMachineStatus(), QStringLiteral("The system manages these separately from your files."));

    listing->mutex.lock();
    listing->fail = true;
    listing->mutex.unlock();
    ASSERT_TRUE(refresh());
    EXPECT_TRUE(monitor.timeMachine().empty());
    EXPECT_EQ(monitor.timeMachineStatus(), QStringLiteral("Snapshots could not be listed."));
}

TEST(ActivityMonitor, ProcessRowsByCPUOrByMemory)
{
    MonitorSample sample;
    // In the sampler's order (busiest first); memory 0…4000 in a cycle, and a big idle process last.
    for (int i = 0; i < 45; ++i)
        sample.processes.push_back(ProcessInfoRow{i, "p" + std::to_string(i), 100.0 - i, std::int64_t(i % 5) * 1000});
    sample.processes.back().cpu = 0;
    sample.processes.back().memory = 1'000'000'000;

    const auto byCPU = ActivityMonitor::processRows(sample, ProcessOrder::byCPU);
    ASSERT_EQ(byCPU.size(), ActivityMonitor::kProcessRows);
    for (std::size_t i = 0; i < byCPU.size(); ++i)
        EXPECT_EQ(byCPU[i].id, int(i));

    const auto byMemory = ActivityMonitor::processRows(sample, ProcessOrder::byMemory);
    ASSERT_EQ(byMemory.size(), ActivityMonitor::kProcessRows);
    EXPECT_EQ(byMemory.front().id, 44) << "most memory first, whatever its CPU";
    for (std::size_t i = 1; i < byMemory.size(); ++i) {
        EXPECT_GE(byMemory[i - 1].memory, byMemory[i].memory);
        if (byMemory[i - 1].memory == byMemory[i].memory) {
            EXPECT_LT(byMemory[i - 1].id, byMemory[i].id) << "equal memory keeps the sampler's order";
        }
    }
    // 36 rows hold 1000 bytes or more; the last four are the first idle ones in order.
    EXPECT_EQ(byMemory[36].id, 0);
    EXPECT_EQ(byMemory[39].id, 15);
    EXPECT_EQ(byMemory[39].memory, 0);

    sample.processes.resize(3);
    EXPECT_EQ(ActivityMonitor::processRows(sample, ProcessOrder::byMemory).size(), 3u);
    EXPECT_EQ(ActivityMonitor::processRows(MonitorSample{}, ProcessOrder::byCPU).size(), 0u);
}
