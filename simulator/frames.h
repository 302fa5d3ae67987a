// Frame pacing: a frame is released at each tick of a steady clock that starts with the session, and every
// time that a frame is told derives from its tick, so that two runs tell the same times from the start on.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>

namespace simulator {

class FrameLoop {
 public:
    explicit FrameLoop(double frames_per_second = 72.0);

    // A session begins: ticks count from `now`, and no frame is under way.
    void Start(XrTime now);

    // Claims the next tick, or the one that passed last if the application is late by more than one.
    XrTime ClaimTick(XrTime now);

    XrTime epoch() const { return epoch_; }
    XrDuration period() const { return period_; }
    // When a frame that was released at `tick` is shown.
    XrTime DisplayTime(XrTime tick) const { return tick + 2 * period_; }

    // The display time of the newest frame, or `now` when none was waited for yet.
    XrTime LatestDisplayTime(XrTime now) const {
        return last_tick_ > 0 ? DisplayTime(epoch_ + last_tick_ * period_) : now;
    }

    // Calls of xrWaitFrame since the session was made, and which of them the frames below come from.
    std::uint64_t wait_calls = 0;
    std::uint64_t waited_wait = 0;
    std::uint64_t begun_wait = 0;
    // A thread is inside xrWaitFrame for the next frame.
    bool being_waited_for = false;
    // Waited for and not yet begun; begun and not yet ended.
    bool waited = false;
    bool begun = false;

 private:
    XrDuration period_;
    XrTime epoch_ = 0;
    std::int64_t last_tick_ = 0;
};

XRAPI_ATTR XrResult XRAPI_CALL WaitFrame(XrSession session, const XrFrameWaitInfo* info, XrFrameState* state);
XRAPI_ATTR XrResult XRAPI_CALL BeginFrame(XrSession session, const XrFrameBeginInfo* info);
XRAPI_ATTR XrResult XRAPI_CALL EndFrame(XrSession session, const XrFrameEndInfo* info);

}  // namespace simulator
