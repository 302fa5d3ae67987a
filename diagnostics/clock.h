#pragma once

#include <cstdint>

namespace orvanic_xr {

// Nanoseconds since 1970 by the system clock. Any thread.
std::int64_t SystemNanoseconds() noexcept;

// Nanoseconds of CLOCK_MONOTONIC, the clock that the runtime's times are converted from. Any thread.
std::int64_t MonotonicNanoseconds() noexcept;

// While one lives, both clocks stand still at what it says, in every thread. For tests; one at a time.
class FakeClock {
 public:
    FakeClock(std::int64_t system_ns, std::int64_t monotonic_ns) noexcept;
    ~FakeClock();
    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;

    // Moves both clocks on by the same time.
    void Advance(std::int64_t nanoseconds) noexcept;
};

}  // namespace orvanic_xr
