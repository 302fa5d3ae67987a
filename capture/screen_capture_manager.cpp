#include "capture/screen_capture_manager.h"

#include "capture/simulator_compositor_capture.h"
#include "context/context_manager.h"
#include "diagnostics/logger.h"
#include "xr/simulator_capture_records.h"

namespace orvanic_xr {

ScreenCaptureManager& ScreenCaptureManager::instance() {
    // Never destroyed: a tool may still capture while the process ends.
    static ScreenCaptureManager& manager = *new ScreenCaptureManager;
    return manager;
}

bool ScreenCaptureManager::initialize() {
    if (backend()) {
        LogWarning("ScreenCapture: Already initialized");
        return true;
    }
    if (!ContextManager::instance().isExtensionEnabled(kSimulatorCompositorCaptureExtension)) {
        LogWarning("ScreenCapture: No backend available");
        return false;
    }
    {
        std::lock_guard lock(mutex_);
        if (!backend_) backend_ = std::make_shared<OpenXRSimulatorCompositorCaptureBackend>();
    }
    LogInfo("ScreenCapture: Using OpenXR simulator compositor capture backend");
    return true;
}

std::shared_ptr<ScreenCaptureBackend> ScreenCaptureManager::backend() const {
    std::lock_guard lock(mutex_);
    return backend_;
}

void ScreenCaptureManager::shutdown() {
    std::shared_ptr<ScreenCaptureBackend> released;
    {
        std::lock_guard lock(mutex_);
        released.swap(backend_);
    }
    if (!released) return;
    released->shutdown();
    released.reset();
    LogInfo("ScreenCapture: Shut down");
}

}  // namespace orvanic_xr
