#pragma once

#include <csignal>

namespace orvanic_xr {

// While one lives, a write of this thread to a pipe that nobody reads, or beyond the size that files may have,
// fails and raises no signal: either would end the host for the sake of a log line. What the host does with these
// signals, and what is pending of them, stays as it is.
class HeldWriteSignals {
 public:
    HeldWriteSignals() noexcept;
    ~HeldWriteSignals();
    HeldWriteSignals(const HeldWriteSignals&) = delete;
    HeldWriteSignals& operator=(const HeldWriteSignals&) = delete;

 private:
    bool whole_thread_;
    sigset_t mask_of_host_;
    sigset_t ours_;  // those that nothing but a write of ours makes pending
    int error_of_host_;
};

// Called first on a thread of ours that logs with every request: it holds these signals as long as it runs, which
// spares HeldWriteSignals two system calls a line.
void HoldWriteSignalsOnThisThread() noexcept;

// While one lives, code of the host that runs on such a thread has these signals as it would on its own.
class ReleasedWriteSignals {
 public:
    ReleasedWriteSignals() noexcept;
    ~ReleasedWriteSignals();
    ReleasedWriteSignals(const ReleasedWriteSignals&) = delete;
    ReleasedWriteSignals& operator=(const ReleasedWriteSignals&) = delete;

 private:
    bool was_held_;
};

}  // namespace orvanic_xr
