#include <gtest/gtest.h>

#include <QObject>
#include <QThreadPool>

#include <atomic>

#include "AppFixture.h"
#include "Gate.h"
#include "app/model/BackgroundQuery.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using tarnbridge::test::Gate;
using tarnbridge::test::spin;
using tarnbridge::test::waitUntil;

namespace {

struct QueryFixture {
    QObject owner;
    QThreadPool pool;
    int ready = 0;
    BackgroundQuery<int, int> query{&owner, pool, [this] { ++ready; }};
    ~QueryFixture() { pool.waitForDone(); }
};

} // namespace

TEST(BackgroundQuery, KeysChangedWithinTheDebounceStartTheWorkOnceForTheLast)
{
    QueryFixture f;
    std::atomic<int> started{0};
    std::atomic<int> startedFor{0};
    auto work = [&](int key) {
        return [&, key](const CancellationFlag&) {
            ++started;
            startedFor = key;
            return key * 10;
        };
    };
    f.query.request(1, work(1));
    f.query.request(2, work(2));
    EXPECT_TRUE(f.query.isPending());
    ASSERT_TRUE(waitUntil([&] { return f.ready == 1; }));
    spin(2 * BackgroundQuery<int, int>::kDebounceMs);
    EXPECT_EQ(started, 1);
    EXPECT_EQ(startedFor, 2);
    EXPECT_EQ(f.query.value(), 20);
    EXPECT_EQ(f.query.readyKey(), 2);
    EXPECT_FALSE(f.query.isPending());
    // Asking again for the key that is ready starts nothing.
    f.query.request(2, work(2));
    spin(2 * BackgroundQuery<int, int>::kDebounceMs);
    EXPECT_EQ(started, 1);
}

TEST(BackgroundQuery, WorkCancelledOrOvertakenWhileComputingNeverDelivers)
{
    QueryFixture f;
    Gate gate;
    f.query.request(1, [&](const CancellationFlag&) {
        gate.hold(); // computing; the value is ready once the gate opens
        return 10;
    });
    ASSERT_TRUE(waitUntil([&] { return gate.reached(); }));
    f.query.cancel();
    gate.open();
    f.pool.waitForDone();
    spin(50);
    EXPECT_FALSE(f.query.value());
    EXPECT_EQ(f.ready, 0);

    // A newer key while the older one computes: only the newer value is taken.
    Gate second;
    f.query.request(3, [&](const CancellationFlag&) {
        second.hold();
        return 30;
    });
    ASSERT_TRUE(waitUntil([&] { return second.reached(); }));
    f.query.request(4, [](const CancellationFlag&) { return 40; });
    second.open();
    ASSERT_TRUE(waitUntil([&] { return f.ready == 1; }));
    f.pool.waitForDone();
    spin(50);
    EXPECT_EQ(f.query.value(), 40);
    EXPECT_EQ(f.ready, 1);
}

TEST(BackgroundQuery, AFailureKeepsThePreviousValue)
{
    QueryFixture f;
    f.query.request(1, [](const CancellationFlag&) { return 10; });
    ASSERT_TRUE(waitUntil([&] { return f.ready == 1; }));
    f.query.request(2, [](const CancellationFlag&) -> int { throw TarnbridgeError("no"); });
    spin(3 * BackgroundQuery<int, int>::kDebounceMs);
    f.pool.waitForDone();
    spin(50);
    EXPECT_EQ(f.query.value(), 10);
    EXPECT_EQ(f.query.readyKey(), 1);
    EXPECT_TRUE(f.query.isPending());
}
