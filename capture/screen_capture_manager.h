// Owns the one capture backend of the process. The xrBeginSession hook asks for it and starts it, xrEndSession
// stops it, the end of the instance releases it; the capture tool uses it in between.
#pragma once

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

 private:
    // Guards backend_.
    mutable std::mutex mutex_;
    std::shared_ptr<ScreenCaptureBackend> backend_;
};

}  // namespace orvanic_xr
