// Frame pacing: a frame is released at each tick of the runtime's clock, counted from the session's start, and every
// time that a frame is told derives from its tick, so that two runs tell the same times from the start on.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>

#include "xr/simulator_frame_demand.h"

namespace simulator {

// What the application had called when: xrWaitFrame and xrSyncActions since the session was made.
struct CallCounts {
    std::uint64_t waits = 0;
    std::uint64_t syncs = 0;
};

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

    // The next frame is waited for.
    void CountWait();

    // Whether the frame that is begun shows everything that was so at `earlier`: it was waited for later, and, of an
    // application that reads its input with every frame, its input was read later.
    bool ShowsAllOf(const CallCounts& earlier) const {
        return begun_wait > earlier.waits && (!syncs_each_frame_ || calls.syncs > earlier.syncs);
    }

    CallCounts calls;
    // Which of the waits the frames below come from.
    std::uint64_t waited_wait = 0;
    std::uint64_t begun_wait = 0;
    // Those that xrWaitFrame has released.
    std::uint64_t released = 0;
    // How many need frames, whether or not they are held.
    std::int64_t demand = 0;
    // Those that have ended since the newest of these.
    std::uint64_t frames_of_demand = 0;
    // A thread is inside xrWaitFrame for the next frame.
    bool being_waited_for = false;
    // And the clock does not let it pass.
    bool is_held = false;
    // Waited for and not yet begun; begun and not yet ended.
    bool waited = false;
    bool begun = false;

 private:
    XrDuration period_;
    XrTime epoch_ = 0;
    std::int64_t last_tick_ = 0;
    std::uint64_t syncs_before_wait_ = 0;
    // There was one between the two newest waits.
    bool syncs_each_frame_ = false;
};

using orvanic_xr::PFN_xrChangeSimulatorFrameDemandKESTX1;

XRAPI_ATTR XrResult XRAPI_CALL ChangeSimulatorFrameDemandKESTX1(XrSession session, std::int32_t change);
XRAPI_ATTR XrResult XRAPI_CALL WaitFrame(XrSession session, const XrFrameWaitInfo* info, XrFrameState* state);
XRAPI_ATTR XrResult XRAPI_CALL BeginFrame(XrSession session, const XrFrameBeginInfo* info);
XRAPI_ATTR XrResult XRAPI_CALL EndFrame(XrSession session, const XrFrameEndInfo* info);

}  // namespace simulator
