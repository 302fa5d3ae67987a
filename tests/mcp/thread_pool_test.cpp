#include "mcp/thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

namespace mcp {
namespace {

using namespace std::chrono_literals;

TEST(ThreadPool, DestructorRunsWhatIsQueued) {
    std::atomic<int> done = 0;
    {
        thread_pool pool(2);
        for (int i = 0; i < 100; ++i) {
            pool.enqueue([&] {
                std::this_thread::sleep_for(100us);
                ++done;
            });
        }
    }
    EXPECT_EQ(done, 100);
}

TEST(ThreadPool, StoppedTakesNothingMore) {
    thread_pool pool(1);
    pool.stop();
    try {
        pool.enqueue([] {});
        FAIL() << "taken";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Thread pool stopped, cannot add task");
    }
}

TEST(ThreadPool, ThrowingTaskHarmsNoOther) {
    thread_pool pool(1);
    auto thrown = pool.enqueue([] { throw 5; });
    auto fine = pool.enqueue([] {});
    EXPECT_THROW(thrown.get(), int);
    EXPECT_EQ(fine.wait_for(10s), std::future_status::ready);
}

// One place, and tasks that wait for `opened` with it lent.
struct WaitingTasks {
    explicit WaitingTasks(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            pool.enqueue([this] {
                const lent_place lent;
                const lent_place again;  // lends nothing more
                ++waiting;
                opened.wait();
            });
        }
        while (waiting < count) std::this_thread::yield();
    }

    std::atomic<std::size_t> waiting = 0;
    std::promise<void> open;
    std::shared_future<void> opened = open.get_future().share();
    thread_pool pool{1};
};

TEST(ThreadPool, WaitingTasksHoldNoOtherUp) {
    WaitingTasks tasks(thread_pool::kSpareWorkers);
    // Each in its turn, in the one place that there is.
    std::atomic<int> inside = 0;
    std::atomic<bool> overlapped = false;
    std::vector<std::future<void>> others;
    for (int i = 0; i < 100; ++i) {
        others.push_back(tasks.pool.enqueue([&] {
            if (++inside > 1) overlapped = true;
            std::this_thread::sleep_for(100us);
            --inside;
        }));
    }
    EXPECT_EQ(others.front().wait_for(10s), std::future_status::ready);
    tasks.open.set_value();  // from here on more workers are free than there are places
    for (auto& other : others) other.wait();
    EXPECT_FALSE(overlapped);
}

TEST(ThreadPool, SpareWorkersHaveABound) {
    WaitingTasks tasks(thread_pool::kSpareWorkers + 1);
    auto other = tasks.pool.enqueue([] {});
    EXPECT_EQ(other.wait_for(20ms), std::future_status::timeout);
    tasks.open.set_value();
    EXPECT_EQ(other.wait_for(10s), std::future_status::ready);
}

}  // namespace
}  // namespace mcp
