#include "capture/simulator_compositor_capture.h"

#include <exception>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "layer/dispatch/dispatch.h"
#include "xr/simulator_capture_records.h"

namespace orvanic_xr {
namespace {

// What the start call is given: both eyes, by the numbering of the eyes.
constexpr std::uint32_t kBothEyes = 3;
constexpr std::uint32_t kMaxDimension = 16384;

// Asked for at each use: the instance may be another one by then.
template <typename Function>
Function Resolve(const char* name) {
    return DispatchHolder::instance().Resolve<Function>(name);
}

// What the runtime throws is one failure more: nothing of it reaches who captures.
template <typename Function, typename... Arguments>
XrResult CallRuntime(Function function, Arguments... arguments) {
    try {
        return function(arguments...);
    } catch (...) {
        return XR_ERROR_RUNTIME_FAILURE;
    }
}

template <typename... Parts>
bool Refuse(const Parts&... parts) {
    LogError("SimulatorCompositorCapture: ", parts...);
    return false;
}

}  // namespace

bool OpenXRSimulatorCompositorCaptureBackend::start(XrSession session) {
    if (active_) {
        LogWarning("SimulatorCompositorCapture: Already active");
        return true;
    }
    if (session == XR_NULL_HANDLE) return Refuse("Null session handle");
    const auto start_capture =
        Resolve<PFN_xrStartSimulatorCompositorOutputCaptureKESTX1>("xrStartSimulatorCompositorOutputCaptureKESTX1");
    if (!start_capture) return Refuse("xrStartSimulatorCompositorOutputCaptureKESTX1 unavailable");
    session_ = session;
    const XrResult result = CallRuntime(start_capture, session, kBothEyes);
    if (XR_FAILED(result)) {
        session_ = XR_NULL_HANDLE;
        return Refuse("Failed to start, result: ", static_cast<int>(result));
    }
    active_ = true;
    LogInfo("SimulatorCompositorCapture: Started");
    return true;
}

void OpenXRSimulatorCompositorCaptureBackend::stop() {
    if (!active_) return;
    const auto stop_capture =
        Resolve<PFN_xrStopSimulatorCompositorOutputCaptureKESTX1>("xrStopSimulatorCompositorOutputCaptureKESTX1");
    const XrSession session = session_;
    if (stop_capture && session != XR_NULL_HANDLE) {
        CallRuntime(stop_capture, session);
    } else {
        LogWarning("SimulatorCompositorCapture: Skipping stop (entry point or session unavailable)");
    }
    session_ = XR_NULL_HANDLE;
    active_ = false;
    LogInfo("SimulatorCompositorCapture: Stopped");
}

bool OpenXRSimulatorCompositorCaptureBackend::capture(std::vector<std::uint8_t>& pixels, std::uint32_t& width,
                                                      std::uint32_t& height, const std::string& eye) {
    if (!active_) return Refuse("Not active");
    const XrSession session = session_;
    if (session == XR_NULL_HANDLE) return Refuse("Session is null");
    const auto context = ContextManager::instance().getSessionContext(session);
    if (context->ended()) return Refuse("Not active");
    PFN_xrCaptureSimulatorCompositorOutputKESTX1 capture_output = nullptr;
    if (const auto pass = context->EnterRuntime()) {
        capture_output =
            Resolve<PFN_xrCaptureSimulatorCompositorOutputKESTX1>("xrCaptureSimulatorCompositorOutputKESTX1");
    }
    if (!capture_output) return Refuse("xrCaptureSimulatorCompositorOutputKESTX1 unavailable");
    const auto call_runtime = [&](SimulatorCompositorCaptureInfo& asked) {
        const auto pass = context->EnterRuntime();
        return pass ? CallRuntime(capture_output, session, &asked) : XR_ERROR_HANDLE_INVALID;
    };

    std::uint32_t width_told = 0;
    std::uint32_t height_told = 0;
    SimulatorCompositorCaptureInfo info = {};
    info.type = kSimulatorCompositorCaptureInfoType;
    info.eye = eye == "left" ? 1 : 2;
    info.width_output = &width_told;
    info.height_output = &height_told;
    XrResult result = call_runtime(info);
    if (XR_FAILED(result)) return Refuse("Failed to query dimensions, result: ", static_cast<int>(result));
    // The second call may tell another size; the buffer is of the first, and so is the picture.
    const std::uint32_t captured_width = width_told;
    const std::uint32_t captured_height = height_told;
    if (captured_width == 0 || captured_height == 0) {
        return Refuse("Invalid dimensions ", captured_width, "x", captured_height);
    }
    if (captured_width > kMaxDimension || captured_height > kMaxDimension) {
        return Refuse("Dimensions exceed maximum ", captured_width, "x", captured_height);
    }
    const std::uint64_t byte_count = std::uint64_t{captured_width} * captured_height * 4;
    try {
        pixels.resize(byte_count);
    } catch (const std::exception&) {
        return Refuse("Failed to allocate ", byte_count, " bytes");
    }
    info.pixels = pixels.data();
    result = call_runtime(info);
    if (XR_FAILED(result)) return Refuse("Failed to capture frame, result: ", static_cast<int>(result));
    width = captured_width;
    height = captured_height;
    LogInfo("SimulatorCompositorCapture: Captured frame ", width, "x", height, " (", byte_count, " bytes)");
    return true;
}

}  // namespace orvanic_xr
