// How a frame of the application's comes into a picture. Whoever wants one leaves a request with the session and waits;
// the xrEndFrame that ends a frame which began after that, and for which the application read its input after that,
// reads the images of its layers into plain memory and hands it over. So the graphics device is used by the
// application's thread alone, and while nobody asks, nothing is read, copied or allocated.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "simulator/frames.h"
#include "simulator/layers.h"
#include "simulator/world.h"

namespace simulator {

// What one eye was shown, in plain memory.
struct SubmittedFrame {
    EyeView eye;
    XrEnvironmentBlendMode mode = XR_ENVIRONMENT_BLEND_MODE_OPAQUE;
    std::vector<ComposedLayer> layers;
    // Behind the layers.
    WorldView world;
};

struct FrameRequest {
    bool IsSettled() const { return frame || XR_FAILED(failure); }
    // Either a frame or why there is none.
    void Settle(std::shared_ptr<const SubmittedFrame> shown, XrResult why_not);

    std::size_t eye = 0;
    // Those that came before it: what their frames show may be older than the request.
    CallCounts calls;
    std::chrono::steady_clock::time_point made;
    bool taken = false;  // by a frame, which will settle it
    // Told under the runtime's mutex, once one of the following is there.
    std::condition_variable settled;
    std::shared_ptr<const SubmittedFrame> frame;
    XrResult failure = XR_SUCCESS;
};

// Where the views were told to be for the latest frames, so that a picture is seen from where its frame was drawn for.
class ToldViews {
 public:
    void Tell(XrTime time, const XrPosef& head);
    // None where nobody asked about this time.
    std::optional<XrPosef> HeadAt(XrTime time) const;

 private:
    struct Row {
        XrTime time = 0;
        XrPosef head = {};
    };
    std::array<Row, 4> rows_;
    std::size_t next_ = 0;
};

// The requests that the frame settles, and what has to be read for them: taken with the mutex locked, and read with it
// open.
struct FrameReading {
    struct Part {
        std::shared_ptr<FrameRequest> request;
        std::shared_ptr<SubmittedFrame> frame;
        std::vector<PlannedLayer> layers;
        XrResult failure = XR_SUCCESS;
    };
    std::vector<Part> parts;

    // On the thread of xrEndFrame. Throws nothing: what fails is kept with its part.
    void Read() noexcept;
};

// A session's; the runtime's mutex guards it.
class FrameRequests {
 public:
    // `calls` are those so far. Waits with the mutex open, no longer than a second for a frame, or three for one that
    // is under way in `frames`. Throws what failed, and XR_ERROR_CALL_ORDER_INVALID where the application ended no
    // frame: an older one would tell of an application that hangs that it is well.
    std::shared_ptr<const SubmittedFrame> Await(std::unique_lock<std::mutex>& lock, std::size_t eye,
                                                const FrameLoop& frames, const CallCounts& calls);

    // Those that the frame settles which is begun, all if the next one is held; with it they are no longer here. Throws
    // before the first is taken, or not at all.
    void TakeInto(std::vector<FrameReading::Part>& parts, const FrameLoop& frames, bool is_held);
    bool empty() const { return pending_.empty(); }

    // The session does not run any more.
    void Abandon();

 private:
    std::vector<std::shared_ptr<FrameRequest>> pending_;
};

// Throws before a request is taken, or not at all.
FrameReading PlanReading(const Runtime& runtime, Session& session, const XrFrameEndInfo& info);

}  // namespace simulator
