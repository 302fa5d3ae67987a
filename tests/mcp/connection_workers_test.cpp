#include "mcp/connection_workers.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <tuple>

namespace mcp {
namespace {

using namespace std::chrono_literals;

// A stream holds its worker: of a burst of streams each must get one, though all workers were idle at its start.
TEST(ConnectionWorkers, BurstOfStreamsIsServedAtOnce) {
    std::atomic<int> served = 0;
    std::promise<void> all_served;
    std::promise<void> end;
    const std::shared_future<void> ended = end.get_future().share();
    // Patient for as long as the first one may take to end.
    connection_workers workers({.kept_workers = 4, .workers = 40, .patience = 10s, .streams = 0});
    workers.enqueue([] {});
    for (int i = 0; i < 40; ++i) {
        EXPECT_TRUE(workers.enqueue([&] {
            if (++served == 40) all_served.set_value();
            ended.wait();
        }));
    }
    EXPECT_EQ(all_served.get_future().wait_for(10s), std::future_status::ready);
    end.set_value();
}

TEST(ConnectionWorkers, ConnectionIsTurnedAwayWhenAllWorkersStayBusy) {
    std::atomic<int> served = 0;
    std::promise<void> end;
    const std::shared_future<void> ended = end.get_future().share();
    {
        connection_workers workers({.kept_workers = 1, .workers = 5, .patience = 1ms, .streams = 0});
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

// A client that calls hundreds of tools at once opens as many connections; each is served in its turn.
TEST(ConnectionWorkers, ConnectionBeyondTheLimitIsTakenAsSoonAsOneHasEnded) {
    std::atomic<int> served = 0;
    {
        connection_workers workers({.kept_workers = 1, .workers = 3, .patience = 20s, .streams = 0});
        for (int i = 0; i < 50; ++i) {
            EXPECT_TRUE(workers.enqueue([&] {
                std::this_thread::sleep_for(1ms);
                ++served;
            }));
        }
    }
    EXPECT_EQ(served, 50);
}

TEST(ConnectionWorkers, TakeNoMoreThanAThirdOfTheDescriptorsWithinBounds) {
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    for (const auto& [descriptors, workers, streams] :
         {std::tuple(100u, 64u, 48u), {600u, 200u, 150u}, {4096u, 512u, 384u}}) {
        const rlimit set{.rlim_cur = descriptors, .rlim_max = usual.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &set), 0);
        EXPECT_EQ(default_connection_limits().workers, workers);
        EXPECT_EQ(default_connection_limits().streams, streams);
    }
    setrlimit(RLIMIT_NOFILE, &usual);
}

}  // namespace
}  // namespace mcp
