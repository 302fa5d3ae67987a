#include "mcp/connection_workers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>

namespace mcp {
namespace {

using namespace std::chrono_literals;

// A stream holds its worker: of a burst of streams each must get one, though all workers were idle at its start.
TEST(ConnectionWorkers, BurstOfStreamsIsServedAtOnce) {
    std::atomic<int> served = 0;
    std::promise<void> all_served;
    std::promise<void> end;
    const std::shared_future<void> ended = end.get_future().share();
    connection_workers workers({.kept_workers = 4, .workers = 40, .connections = 100});
    workers.enqueue([] {});
    for (int i = 0; i < 40; ++i) {
        ASSERT_TRUE(workers.enqueue([&] {
            if (++served == 40) all_served.set_value();
            ended.wait();
        }));
    }
    EXPECT_EQ(all_served.get_future().wait_for(10s), std::future_status::ready);
    end.set_value();
}

TEST(ConnectionWorkers, WaitBeyondTheWorkersAndAreTurnedAwayBeyondTheLimit) {
    std::atomic<int> served = 0;
    std::promise<void> end;
    const std::shared_future<void> ended = end.get_future().share();
    {
        connection_workers workers({.kept_workers = 1, .workers = 2, .connections = 5});
        const auto serve = [&] {
            ended.wait();
            ++served;
        };
        for (int i = 0; i < 5; ++i) EXPECT_TRUE(workers.enqueue(serve));
        EXPECT_FALSE(workers.enqueue(serve));
        end.set_value();
    }
    EXPECT_EQ(served, 5);
}

TEST(ConnectionWorkers, ShutDownTakeNothingMore) {
    connection_workers workers({.kept_workers = 1, .workers = 2, .connections = 5});
    workers.shutdown();
    EXPECT_FALSE(workers.enqueue([] {}));
}

}  // namespace
}  // namespace mcp
