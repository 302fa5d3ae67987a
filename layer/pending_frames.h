// The frames in flight: between the entry of xrWaitFrame and a successful xrEndFrame. OpenXR lets frames overlap,
// and an application may wait on one thread and render on another: what a wait or a begin tells goes to the newest
// frame, what an end tells to the oldest.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <mutex>
#include <vector>

#include "context/records.h"
#include "context/ring_queue.h"

namespace orvanic_xr {

struct PendingFrame {
    bool waited = false;  // xrWaitFrame returned
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
    void MarkBegun(std::int64_t now_ns);
    void MarkEnded(std::int64_t now_ns);
    // The oldest frame was ended with success by `session`: stores it as the last frame and drops it. `end_info`
    // may be null. Without a frame in flight nothing happens.
    void Complete(XrSession session, const XrFrameEndInfo* end_info, std::vector<LayerSummary> layers);

    std::vector<PendingFrame> frames() const;  // oldest first

 private:
    // Guards frames_. It has no bound: on purpose only a successful end takes a frame out, so one that is abandoned
    // at the end of a session stays for the next one.
    mutable std::mutex mutex_;
    RingQueue<PendingFrame> frames_;
};

}  // namespace orvanic_xr
