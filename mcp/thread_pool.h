#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace mcp {

// A fixed number of places, a worker for each, and one queue. A task that waits for something lends its place (see
// lent_place): then a spare worker serves the queue in it.
class thread_pool {
 public:
    // More tasks than this that wait at the same time keep places of their own.
    static constexpr std::size_t kSpareWorkers = 64;

    // With 0 threads tasks are accepted and never run.
    explicit thread_pool(std::uint32_t thread_count);
    // Runs what is queued to its end, with no limit, and joins the workers.
    ~thread_pool();
    thread_pool(const thread_pool&) = delete;
    thread_pool& operator=(const thread_pool&) = delete;

    // What `task` throws goes to the future. Throws std::runtime_error if the pool has stopped.
    std::future<void> enqueue(std::function<void()> task);

    // From now on nothing can be queued; what is queued still runs. The destructor calls it.
    void stop();

 private:
    friend class lent_place;

    void run_worker() noexcept;
    void lend_place() noexcept;
    void take_place_back() noexcept;

    std::mutex mutex_;  // tasks_ and the counts, the change of stopped_, and the growth of workers_
    std::condition_variable wake_;
    std::deque<std::packaged_task<void()>> tasks_;
    std::atomic<bool> stopped_{false};
    std::size_t places_ = 0;
    std::size_t running_ = 0;  // tasks in a place; above places_ for as long as a lender that is back goes on
    std::size_t lenders_ = 0;
    // Grows by a spare when more lend than ever before, and not any more once stopped_. Spares stay until the end.
    std::vector<std::thread> workers_;
};

// While it lives, the task on this thread counts as waiting, and another one may run in its place. Coming back it
// waits for nothing. Does nothing on a thread that is no pool worker, or that lends already.
class lent_place {
 public:
    lent_place() noexcept;
    ~lent_place();
    lent_place(const lent_place&) = delete;
    lent_place& operator=(const lent_place&) = delete;

 private:
    thread_pool* const lender_;
};

}  // namespace mcp
