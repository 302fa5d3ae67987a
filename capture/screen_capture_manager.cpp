#include "capture/screen_capture_manager.h"

#include <cstdint>

#include "capture/simulator_compositor_capture.h"
#include "context/context_manager.h"
#include "diagnostics/clock.h"
#include "diagnostics/logger.h"
#include "xr/simulator_capture_records.h"

namespace orvanic_xr {
namespace {

constexpr std::chrono::milliseconds kReadinessPoll{100};

}  // namespace

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

bool ScreenCaptureManager::wait_until_ready(ScreenCaptureBackend& backend, std::chrono::nanoseconds limit) {
    const std::int64_t asked_ns = MonotonicNanoseconds();
    while (!backend.is_ready() && MonotonicNanoseconds() - asked_ns < limit.count()) {
        std::unique_lock lock(mutex_);
        if (closing_.wait_for(lock, kReadinessPoll, [this] { return closed_; })) break;
    }
    return backend.is_ready();
}

void ScreenCaptureManager::close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    closing_.notify_all();
}

void ScreenCaptureManager::open() {
    std::lock_guard lock(mutex_);
    closed_ = false;
}

}  // namespace orvanic_xr
