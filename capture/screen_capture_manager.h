// Owns the one capture backend of the process. The xrBeginSession hook asks for it and starts it, xrEndSession
// stops it, the end of the instance releases it; the capture tool uses it in between.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "capture/screen_capture_backend.h"

namespace orvanic_xr {

class ScreenCaptureManager {
 public:
    static ScreenCaptureManager& instance();

    // Makes the backend that suits the cached instance's extensions. True if there is one now.
    bool initialize();
    // Null until initialised. A caller's share keeps the backend through its call, whatever shutdown does.
    std::shared_ptr<ScreenCaptureBackend> backend() const;
    void shutdown();

    // Whether a capture can be made now, or within `limit`. Asks the backend again and again, with nothing locked.
    bool wait_until_ready(ScreenCaptureBackend& backend, std::chrono::nanoseconds limit);
    // The instance ends: ends these waits, and until the next open also those that come later, since the server's end
    // waits for the tools that wait here.
    void close();
    void open();

 private:
    // Guards both below.
    mutable std::mutex mutex_;
    std::condition_variable closing_;
    bool closed_ = false;
    std::shared_ptr<ScreenCaptureBackend> backend_;
};

}  // namespace orvanic_xr
