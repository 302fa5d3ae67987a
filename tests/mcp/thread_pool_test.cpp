#include "mcp/thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>

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

TEST(ThreadPool, WithoutWorkersTasksAreTakenAndNeverRun) {
    thread_pool pool(0);
    auto task = pool.enqueue([] { FAIL() << "ran"; });
    EXPECT_EQ(task.wait_for(10ms), std::future_status::timeout);
}

}  // namespace
}  // namespace mcp
