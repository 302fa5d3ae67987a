// The frames in flight: between the entry of xrWaitFrame and a successful xrEndFrame. OpenXR lets frames overlap,
// and an application may wait on one thread and render on another: what a wait or a begin tells goes to the newest
// frame, what an end tells to the oldest. Frames are begun in the order in which they were waited for, one at a time.
#pragma once

#include <openxr/openxr.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "context/records.h"
#include "context/ring_queue.h"

namespace orvanic_xr {

struct PendingFrame {
    bool waited = false;  // xrWaitFrame returned
    bool begun = false;
    XrResult waitResult = XR_SUCCESS;
    XrTime predictedDisplayTime = 0;
    XrDuration predictedDisplayPeriod = 0;
    XrBool32 shouldRender = XR_FALSE;
    XrSession session = XR_NULL_HANDLE;
    // By the system clock, on entry to the three hooks; 0 until then.
    std::int64_t waitFrameTime = 0;
    std::int64_t beginFrameTime = 0;
    std::int64_t endFrameTime = 0;
};

// Any thread. Takes its mutex before those of ContextManager and SessionContext (see there), and never across a
// call of the runtime. Allocates nothing in a steady frame loop.
class PendingFrames {
 public:
    static PendingFrames& instance();

    void Push(XrSession session, std::int64_t now_ns);
    // `frame_state` is what the runtime filled, or null.
    void MarkWaited(XrSession session, XrResult result, const XrFrameState* frame_state);
    // True if there is a frame that this begins.
    bool MarkBegun(XrSession session, std::int64_t now_ns);
    // The call for which MarkBegun gave true answered something other than XR_SUCCESS: it began nothing, or the frame
    // that was begun before, and not ended, was discarded for it and is dropped.
    void SettleBegun(XrSession session, XrResult result);
    void MarkEnded(std::int64_t now_ns);
    // The oldest frame was ended with success by `session`: stores it as the last frame and drops it. `end_info`
    // may be null. Without a frame in flight nothing happens.
    void Complete(XrSession session, const XrFrameEndInfo* end_info, std::vector<LayerSummary> layers);

 private:
    // The index of the newest frame of `session` below `end` that was begun, or kNone.
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
    std::size_t NewestBegunLocked(XrSession session, std::size_t end) const;

    // Guards frames_. It has no bound: on purpose only a successful end or a discard takes a frame out, so one that is
    // abandoned at the end of a session stays for the next one.
    mutable std::mutex mutex_;
    RingQueue<PendingFrame> frames_;
};

}  // namespace orvanic_xr
