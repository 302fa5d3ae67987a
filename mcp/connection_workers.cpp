#include "mcp/connection_workers.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

#include "diagnostics/write_signals.h"

namespace mcp {
namespace {

constexpr std::chrono::seconds kIdleTime{3};

}  // namespace

connection_limits default_connection_limits() {
    const std::size_t cores = std::thread::hardware_concurrency();
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    const std::size_t workers = std::clamp<std::size_t>(descriptors.rlim_cur / 3, 64, 512);
    return {
        .kept_workers = std::max<std::size_t>(8, cores - std::min<std::size_t>(cores, 1)),
        .workers = workers,
        .patience = std::chrono::seconds(5),  // as long as a silent connection lasts
        .streams = workers / 4 * 3,
    };
}

connection_workers::connection_workers(const connection_limits& limits) : limits_(limits) {}

connection_workers::~connection_workers() {
    shutdown();
}

bool connection_workers::enqueue(std::function<void()> serve) {
    {
        std::unique_lock lock(mutex_);
        const auto has_room = [this] { return stopped_ || free_locked() > 0; };
        if (!room_.wait_until(lock, full_since_ + limits_.patience, has_room) || stopped_) return false;
        const auto is_one_idle = [this] { return stopped_ || queue_.size() < idle_; };
        if (!is_one_idle() && !start_worker_locked()) {
            if (!room_.wait_for(lock, limits_.patience, is_one_idle) || stopped_) return false;
        }
        queue_.push_back(std::move(serve));
        if (!has_room()) full_since_ = std::chrono::steady_clock::now();
    }
    wake_.notify_one();
    return true;
}

bool connection_workers::is_crowded() {
    const std::lock_guard lock(mutex_);
    return free_locked() < limits_.workers / 4;
}

bool connection_workers::start_worker_locked() {
    for (std::thread& ended : ended_) ended.join();
    ended_.clear();
    try {
        workers_.emplace_back(&connection_workers::run_worker, this);
        ++idle_;  // from now on, not only when it runs: the next connection must not count on it as well
        return true;
    } catch (const std::system_error&) {  // the host is out of threads
        return false;
    }
}

void connection_workers::shutdown() {
    std::list<std::thread> workers;
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
        workers.splice(workers.end(), workers_);
        workers.splice(workers.end(), ended_);
    }
    wake_.notify_all();
    room_.notify_all();
    for (std::thread& worker : workers) worker.join();
}

void connection_workers::run_worker() noexcept {
    orvanic_xr::HoldWriteSignalsOnThisThread();
    std::unique_lock lock(mutex_);
    for (;;) {
        const auto woken = [this] { return stopped_ || !queue_.empty(); };
        if (workers_.size() <= limits_.kept_workers) {
            wake_.wait(lock, woken);
        } else {
            wake_.wait_for(lock, kIdleTime, woken);
        }
        if (!queue_.empty()) {
            const std::function<void()> serve = std::move(queue_.front());
            queue_.pop_front();
            --idle_;
            lock.unlock();
            serve();
            lock.lock();
            ++idle_;
            room_.notify_one();
        } else if (stopped_) {
            return;
        } else if (workers_.size() > limits_.kept_workers) {
            --idle_;
            const auto self = std::find_if(workers_.begin(), workers_.end(), [](const std::thread& worker) {
                return worker.get_id() == std::this_thread::get_id();
            });
            ended_.splice(ended_.end(), workers_, self);
            return;
        }
    }
}

}  // namespace mcp
