// The one way to capture that exists: through the extension of a simulator runtime.
#pragma once

#include <openxr/openxr.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "capture/screen_capture_backend.h"

namespace orvanic_xr {

// Active from xrBeginSession to xrEndSession, or to the session's end; lives across sessions.
class OpenXRSimulatorCompositorCaptureBackend : public ScreenCaptureBackend {
 public:
    bool start(XrSession session) override;
    void stop() override;
    XrSession session() const override { return session_; }
    bool is_ready() override { return active_; }
    // This backend needs nobody's consent.
    bool request_permission() override { return active_; }
    bool capture(std::vector<std::uint8_t>& pixels, std::uint32_t& width, std::uint32_t& height,
                 const std::string& eye) override;
    void shutdown() override { stop(); }

 private:
    std::atomic<XrSession> session_ = XR_NULL_HANDLE;
    std::atomic<bool> active_ = false;
};

}  // namespace orvanic_xr
