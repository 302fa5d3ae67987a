#include "diagnostics/write_signals.h"

#include <cerrno>
#include <ctime>
#include <utility>

namespace orvanic_xr {

namespace {

constexpr int kSignals[] = {SIGPIPE, SIGXFSZ};

thread_local bool is_held_on_thread = false;

sigset_t WriteSignals() noexcept {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : kSignals) sigaddset(&signals, signal);
    return signals;
}

void TakePending(const sigset_t& signals) noexcept {
    constexpr timespec kAtOnce{};
    while (sigtimedwait(&signals, nullptr, &kAtOnce) > 0) {
    }
}

}  // namespace

HeldWriteSignals::HeldWriteSignals() noexcept
    : whole_thread_(is_held_on_thread), ours_(WriteSignals()), error_of_host_(std::exchange(errno, 0)) {
    if (whole_thread_) return;
    pthread_sigmask(SIG_BLOCK, &ours_, &mask_of_host_);
    for (const int signal : kSignals) {
        if (sigismember(&mask_of_host_, signal) == 0) continue;
        // The host holds it too, so one may be pending for the host, and must stay so.
        sigset_t pending;
        if (sigpending(&pending) != 0 || sigismember(&pending, signal) != 0) sigdelset(&ours_, signal);
    }
}

HeldWriteSignals::~HeldWriteSignals() {
    if (!whole_thread_) {
        if (errno == EPIPE || errno == EFBIG) TakePending(ours_);
        pthread_sigmask(SIG_SETMASK, &mask_of_host_, nullptr);
    }
    errno = error_of_host_;
}

void HoldWriteSignalsOnThisThread() noexcept {
    const sigset_t signals = WriteSignals();
    sigset_t before;
    if (pthread_sigmask(SIG_BLOCK, &signals, &before) != 0) return;
    // Where the host holds one of them already, each line has to look what is pending for the host.
    is_held_on_thread = sigismember(&before, SIGPIPE) == 0 && sigismember(&before, SIGXFSZ) == 0;
    if (!is_held_on_thread) pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

ReleasedWriteSignals::ReleasedWriteSignals() noexcept : was_held_(std::exchange(is_held_on_thread, false)) {
    if (!was_held_) return;
    const sigset_t signals = WriteSignals();
    TakePending(signals);  // left by writes of ours
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

ReleasedWriteSignals::~ReleasedWriteSignals() {
    if (was_held_) HoldWriteSignalsOnThisThread();
}

}  // namespace orvanic_xr
