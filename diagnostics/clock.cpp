#include "diagnostics/clock.h"

#include <atomic>
#include <ctime>

namespace orvanic_xr {

namespace {

std::atomic<bool> fake_clock_runs{false};
std::atomic<std::int64_t> fake_system_ns{0};
std::atomic<std::int64_t> fake_monotonic_ns{0};

std::int64_t ReadClock(clockid_t clock) noexcept {
    timespec now{};
    clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

std::int64_t SystemNanoseconds() noexcept {
    if (fake_clock_runs.load(std::memory_order_acquire)) return fake_system_ns.load(std::memory_order_relaxed);
    return ReadClock(CLOCK_REALTIME);
}

std::int64_t MonotonicNanoseconds() noexcept {
    if (fake_clock_runs.load(std::memory_order_acquire)) return fake_monotonic_ns.load(std::memory_order_relaxed);
    return ReadClock(CLOCK_MONOTONIC);
}

FakeClock::FakeClock(std::int64_t system_ns, std::int64_t monotonic_ns) noexcept {
    fake_system_ns.store(system_ns, std::memory_order_relaxed);
    fake_monotonic_ns.store(monotonic_ns, std::memory_order_relaxed);
    fake_clock_runs.store(true, std::memory_order_release);
}

FakeClock::~FakeClock() {
    fake_clock_runs.store(false, std::memory_order_release);
}

void FakeClock::Advance(std::int64_t nanoseconds) noexcept {
    fake_system_ns.fetch_add(nanoseconds, std::memory_order_relaxed);
    fake_monotonic_ns.fetch_add(nanoseconds, std::memory_order_relaxed);
}

}  // namespace orvanic_xr
