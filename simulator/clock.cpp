#include "simulator/clock.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace simulator {
namespace {

std::int64_t Scaled(std::int64_t duration, double factor) {
    if (factor == 1) return duration;
    // The largest that a double holds and a duration, too.
    constexpr double kMost = 9.2e18;
    return std::llround(std::clamp(static_cast<double>(duration) * factor, -kMost, kMost));
}

}  // namespace

Clock::Clock(ClockMode mode) {
    if (mode == ClockMode::kReal) return;
    held_ = mode == ClockMode::kStepped;
    rate_ = 0;
    shown_ = kBeginning;
}

XrTime Clock::At(std::int64_t real) const {
    return Flows() ? Later(shown_, Scaled(real - moved_, rate_)) : shown_;
}

bool Clock::Reach(XrTime tick, std::int64_t real, bool is_wanted) {
    if (Flows()) return real >= RealTimeOf(tick);
    if (!LetsPass() && !is_wanted) return false;
    if (held_ && allowed_ > 0) --allowed_;
    SkipTo(tick, real);
    return true;
}

std::int64_t Clock::RealTimeOf(XrTime time) const {
    return Later(moved_, Scaled(time - shown_, 1 / rate_));
}

void Clock::SkipTo(XrTime time, std::int64_t real) {
    if (time <= shown_) return;
    shown_ = time;
    moved_ = real;
}

void Clock::Hold(std::int64_t real) {
    if (!held_ || allowed_ > 1) Allow(1, real);
}

void Clock::Allow(std::uint64_t frames, std::int64_t real) {
    Settle(real);
    held_ = true;
    allowed_ = frames;
}

void Clock::Run(std::int64_t real) {
    Settle(real);
    held_ = false;
}

void Clock::SetRate(double rate, std::int64_t real) {
    Settle(real);
    rate_ = rate;
}

void Clock::Settle(std::int64_t real) {
    if (Flows()) shown_ = At(real);
    moved_ = real;
}

XrTime Clock::TimeOf(std::int64_t then, std::int64_t real) const {
    if (Flows()) return At(then);
    return then > moved_ && then <= real ? shown_ : Later(shown_, then - moved_);
}

std::int64_t Clock::Later(std::int64_t time, std::int64_t duration) {
    std::int64_t sum = 0;
    if (!__builtin_add_overflow(time, duration, &sum)) return sum;
    return duration > 0 ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
}

}  // namespace simulator
