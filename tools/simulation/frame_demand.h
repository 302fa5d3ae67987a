// A tool that waits for frames says so to a simulator that may hold them.
#pragma once

#include <openxr/openxr.h>

#include <memory>

namespace orvanic_xr {

// Does nothing where moves do not go by frames, or the runtime holds none. Any thread; nothing is thrown. Copies are
// the same need.
//
// What is to happen in frames is queued before Begin(), so that the first one finds it; and the answer waits for
// Rest(), so that the next call begins between the same two frames in each run.
class FrameNeed {
 public:
    explicit FrameNeed(XrSession session);

    // Frames go by until End(); none do if that was called first.
    void Begin() const noexcept;
    void End() const noexcept;
    // Until the frame under way has ended and the next one is held, or no longer than a second. Not the frame thread.
    void Rest() const noexcept;

 private:
    struct Demand;
    std::shared_ptr<Demand> demand_;
};

}  // namespace orvanic_xr
