#include "mcp/thread_pool.h"

#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "diagnostics/write_signals.h"

namespace mcp {
namespace {

// The pool whose place the task on this thread holds.
thread_local thread_pool* place_holder_of = nullptr;

}  // namespace

thread_pool::thread_pool(std::uint32_t thread_count) {
    workers_.reserve(thread_count);
    // Counted first: a worker that is already there looks at it.
    places_ = thread_count;
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
    orvanic_xr::HoldWriteSignalsOnThisThread();
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return tasks_.empty() ? stopped_.load() : running_ < places_; });
        if (tasks_.empty()) break;
        std::packaged_task<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        ++running_;
        lock.unlock();
        place_holder_of = this;
        task();
        place_holder_of = nullptr;
        task = {};  // what it holds goes before the lock is taken again
        lock.lock();
        --running_;
    }
    // Those that found tasks but no place before the stop have nothing else to wake them.
    wake_.notify_all();
}

void thread_pool::lend_place() noexcept {
    {
        const std::lock_guard lock(mutex_);
        --running_;
        ++lenders_;
        const bool spare_wanted = workers_.size() < places_ + lenders_ && lenders_ <= kSpareWorkers;
        if (spare_wanted && !stopped_) {
            try {  // under the lock, so that no worker comes once the destructor joins them
                workers_.emplace_back(&thread_pool::run_worker, this);
            } catch (const std::exception&) {
                // The host is out of threads: the workers that there are serve as well, only slower.
            }
        }
    }
    wake_.notify_one();
}

void thread_pool::take_place_back() noexcept {
    const std::lock_guard lock(mutex_);
    ++running_;
    --lenders_;
}

lent_place::lent_place() noexcept : lender_(std::exchange(place_holder_of, nullptr)) {
    if (lender_) lender_->lend_place();
}

lent_place::~lent_place() {
    if (!lender_) return;
    lender_->take_place_back();
    place_holder_of = lender_;
}

}  // namespace mcp
