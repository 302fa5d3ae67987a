// The simulator's clock. Every XrTime derives from it: display times, the head's sway, when a request is answered.
//
// It flows, as many times as fast as CLOCK_MONOTONIC as its rate says; or it stands, and then each frame moves it on by
// one period, and nothing else does. One that stands may be held: no frame goes by but those that are allowed.
//
// Knows no thread and asks no time itself: `real` is always CLOCK_MONOTONIC in nanoseconds.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>

namespace simulator {

enum class ClockMode : std::uint8_t {
    kReal,     // shows CLOCK_MONOTONIC
    kFixed,    // stands
    kStepped,  // stands, and is held
};

class Clock {
 public:
    // Where a clock begins that stands: the same in each run, so that two runs tell the same times.
    static constexpr XrTime kBeginning = 1'000'000'000;

    explicit Clock(ClockMode mode = ClockMode::kReal);

    // What it shows. Of a clock that flows also what it showed, and what it will show.
    XrTime At(std::int64_t real) const;
    bool Flows() const { return !held_ && rate_ > 0; }

    // A frame that is due at `tick` goes by, if it may and its time has come: false if not. A clock that stands is
    // moved there.
    // One that is wanted may, whatever is allowed.
    bool Reach(XrTime tick, std::int64_t real, bool is_wanted = false);
    // When that will be, of a clock that flows.
    std::int64_t RealTimeOf(XrTime time) const;
    // Whether a frame may go by at all.
    bool LetsPass() const { return !held_ || allowed_ > 0; }
    // Moves a clock on that stands, where no frame will.
    void SkipTo(XrTime time, std::int64_t real);

    // Stands, and lets no frame pass but those that are allowed. The one that is under way is.
    void Hold(std::int64_t real);
    // Likewise, and `frames` go by. They move the clock, however it flows else.
    void Allow(std::uint64_t frames, std::int64_t real);
    void Run(std::int64_t real);
    // How many times as fast as CLOCK_MONOTONIC it flows while it isn't held; 0 stands.
    void SetRate(double rate, std::int64_t real);
    bool IsHeld() const { return held_; }
    double rate() const { return rate_; }

    // For applications that read CLOCK_MONOTONIC themselves. While the clock stands, all that has passed since it was
    // moved is the moment at which it stands; the future begins there, and the past ends there.
    XrTime TimeOf(std::int64_t then, std::int64_t real) const;
    std::int64_t MomentOf(XrTime time) const { return Flows() ? RealTimeOf(time) : Later(moved_, time - shown_); }

 private:
    // What follows starts from what it shows now.
    void Settle(std::int64_t real);
    static std::int64_t Later(std::int64_t time, std::int64_t duration);

    bool held_ = false;
    // 0 is a clock that stands.
    double rate_ = 1;
    // Frames that a held clock still lets pass.
    std::uint64_t allowed_ = 0;
    // What it showed when it was last moved or set, and when that was.
    XrTime shown_ = 0;
    std::int64_t moved_ = 0;
};

}  // namespace simulator
