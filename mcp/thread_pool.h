#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace mcp {

// A fixed number of workers and one queue.
class thread_pool {
 public:
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
    void run_worker() noexcept;

    std::mutex mutex_;  // tasks_, and the change of stopped_
    std::condition_variable wake_;
    std::deque<std::packaged_task<void()>> tasks_;
    std::atomic<bool> stopped_{false};
    std::vector<std::thread> workers_;
};

}  // namespace mcp
