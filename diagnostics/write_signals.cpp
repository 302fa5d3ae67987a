#include "diagnostics/write_signals.h"

#include <cerrno>
#include <ctime>

namespace orvanic_xr {

namespace {

constexpr int kSignals[] = {SIGPIPE, SIGXFSZ};

}  // namespace

HeldWriteSignals::HeldWriteSignals() noexcept : error_of_host_(errno) {
    sigemptyset(&ours_);
    for (const int signal : kSignals) sigaddset(&ours_, signal);
    pthread_sigmask(SIG_BLOCK, &ours_, &mask_of_host_);
    for (const int signal : kSignals) {
        if (sigismember(&mask_of_host_, signal) == 0) continue;
        // The host holds it too, so one may be pending for the host, and must stay so.
        sigset_t pending;
        if (sigpending(&pending) != 0 || sigismember(&pending, signal) != 0) sigdelset(&ours_, signal);
    }
    errno = 0;
}

HeldWriteSignals::~HeldWriteSignals() {
    if (errno == EPIPE || errno == EFBIG) {
        constexpr timespec kAtOnce{};
        while (sigtimedwait(&ours_, nullptr, &kAtOnce) > 0) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &mask_of_host_, nullptr);
    errno = error_of_host_;
}

}  // namespace orvanic_xr
