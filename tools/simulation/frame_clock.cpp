#include "tools/simulation/frame_clock.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <utility>

#include "diagnostics/logger.h"

namespace orvanic_xr {

FrameClock& FrameClock::instance() {
    // Never destroyed: the frame thread may still tell of a frame while the process ends.
    static FrameClock& clock = *new FrameClock;
    return clock;
}

void FrameClock::ReadSwitch() {
    const char* value = std::getenv("ORVANICXR_FRAME_CLOCK");
    is_on_ = value && std::string_view(value) == "1";
    if (is_on()) LogInfo("ORVANICXR_FRAME_CLOCK is 1: moves and holds go by the display times of frames");
    shown_ = kNoFrame;
    decltype(holds_) forgotten;
    std::lock_guard lock(mutex_);
    holds_.swap(forgotten);
}

bool FrameClock::HasPassed(std::int64_t start, std::int64_t duration) const {
    return start != kNoFrame && now() - start >= duration - period_ / 2;
}

void FrameClock::After(std::int64_t duration, std::function<void()> work) {
    std::lock_guard lock(mutex_);
    holds_.push_back({now(), duration, std::move(work)});
}

void FrameClock::Advance(XrTime shown, XrDuration period) {
    shown_ = shown;
    period_ = period;
    ++frames_;
    std::vector<Hold> due;
    {
        std::lock_guard lock(mutex_);
        for (Hold& hold : holds_) {
            if (hold.start == kNoFrame) hold.start = shown;
        }
        const auto waits = [this](const Hold& hold) { return !HasPassed(hold.start, hold.duration); };
        const auto first_due = std::stable_partition(holds_.begin(), holds_.end(), waits);
        std::move(first_due, holds_.end(), std::back_inserter(due));
        holds_.erase(first_due, holds_.end());
    }
    for (const Hold& hold : due) hold.work();
}

}  // namespace orvanic_xr
