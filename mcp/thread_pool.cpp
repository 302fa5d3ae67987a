#include "mcp/thread_pool.h"

#include <stdexcept>
#include <utility>

namespace mcp {

thread_pool::thread_pool(std::uint32_t thread_count) {
    workers_.reserve(thread_count);
    try {
        for (std::uint32_t i = 0; i < thread_count; ++i) workers_.emplace_back(&thread_pool::run_worker, this);
    } catch (const std::system_error&) {
        // The host is out of threads. Fewer workers serve as well, only slower; none at all would never answer.
        if (workers_.empty()) throw;
    }
}

thread_pool::~thread_pool() {
    stop();
    for (std::thread& worker : workers_) worker.join();
}

void thread_pool::stop() {
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
    }
    wake_.notify_all();
}

std::future<void> thread_pool::enqueue(std::function<void()> task) {
    std::packaged_task<void()> packaged(std::move(task));
    std::future<void> done = packaged.get_future();
    {
        const std::lock_guard lock(mutex_);
        if (stopped_) throw std::runtime_error("Thread pool stopped, cannot add task");
        tasks_.push_back(std::move(packaged));
    }
    wake_.notify_one();
    return done;
}

void thread_pool::run_worker() noexcept {
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopped_ || !tasks_.empty(); });
        if (tasks_.empty()) return;
        std::packaged_task<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        task = {};  // what it holds goes before the lock is taken again
        lock.lock();
    }
}

}  // namespace mcp
