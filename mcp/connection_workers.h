#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace mcp {

struct connection_limits {
    std::size_t kept_workers;            // stay once they were started; the others end after idling for a while
    std::size_t workers;                 // run at once, one a connection; the next one waits until one of them is free
    std::chrono::milliseconds patience;  // but when none is for that long, it and those behind it are turned away
    std::size_t streams;                 // of the connections, so that a share of them is left to requests
};

// For this machine and this process: a flood of connections must neither take all threads nor all descriptors
// from the host application.
connection_limits default_connection_limits();

// Threads that serve connections, one connection each, started when there are more connections than idle ones.
// A stream holds its worker for as long as it lives, so no connection may ever wait behind one that is served.
class connection_workers {
 public:
    explicit connection_workers(const connection_limits& limits);
    ~connection_workers();
    connection_workers(const connection_workers&) = delete;
    connection_workers& operator=(const connection_workers&) = delete;

    // False if `serve` is not going to be run. It must not throw. Waits while all workers are busy, within the
    // patience. For one thread.
    bool enqueue(std::function<void()> serve);

    // True while more than three quarters of the connections are taken. Any thread.
    bool is_crowded();

    // Runs what was taken, and joins all workers.
    void shutdown();

 private:
    void run_worker() noexcept;
    bool start_worker_locked();
    std::size_t free_locked() const { return limits_.workers - (workers_.size() - idle_ + queue_.size()); }

    const connection_limits limits_;

    std::mutex mutex_;  // all below
    std::condition_variable wake_;
    std::condition_variable room_;
    std::chrono::steady_clock::time_point full_since_;
    std::deque<std::function<void()>> queue_;  // never more than idle workers
    std::size_t idle_ = 0;
    bool stopped_ = false;
    std::list<std::thread> workers_;
    std::list<std::thread> ended_;  // to be joined
};

}  // namespace mcp
