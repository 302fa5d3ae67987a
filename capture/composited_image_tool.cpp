// openxr_capture_composited_image shows the agent what the user sees: one eye's composited frame as a PNG.
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "capture/base64.h"
#include "capture/capture_tools.h"
#include "capture/image_encoding.h"
#include "capture/screen_capture_manager.h"
#include "context/context_manager.h"
#include "diagnostics/logger.h"
#include "mcp/thread_pool.h"
#include "tools/arguments.h"
#include "tools/session_lookup.h"
#include "tools/tool_results.h"
#include "xr/simulator_capture_records.h"

namespace orvanic_xr {
namespace {

constexpr char kName[] = "openxr_capture_composited_image";

constexpr char kDescription[] =
    "Capture the composited image from the OpenXR runtime, which is the visual content that the user can see. The "
    "composited image includes both the physical environment (if passthrough is activated) and the virtual world. You "
    "can choose either left or right eye to capture.";

constexpr char kPermissionPending[] =
    "Screen capture permission is pending. A system consent dialog is now shown in the headset — ask the user to "
    "approve it, then call openxr_capture_composited_image again. This is not an error; retry once the user has "
    "granted permission.";

constexpr std::chrono::seconds kPermissionWait{5};

// Asks for permission and waits a while for it. True if a capture can be made now.
bool WaitUntilReady(ScreenCaptureBackend& backend) {
    if (backend.is_ready()) return true;
    LogInfo(kName, ": Capture backend not ready, requesting permission");
    backend.request_permission();
    const mcp::lent_place lent;
    if (ScreenCaptureManager::instance().wait_until_ready(backend, kPermissionWait)) return true;
    if (backend.session() == XR_NULL_HANDLE) {
        LogWarning(kName, ": no permission is missing: no session has begun, or its capture could not be started");
    }
    LogInfo(kName, ": Permission not yet granted, returning pending status");
    return false;
}

json CaptureAndEncode(ScreenCaptureBackend& backend, const std::string& eye) {
    std::vector<std::uint8_t> pixels;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    if (!backend.capture(pixels, width, height, eye)) {
        return refuse(kName, Refusal{.log = "Screen capture failed", .answer = "Failed to capture frame."});
    }
    const auto png = encode_png(pixels, width, height);
    if (!png || png->empty()) {
        return refuse(kName, Refusal{.log = "Failed to encode PNG", .answer = "Failed to encode image to PNG format."});
    }
    json image = {{"type", "image"}};
    image["data"] = encode_base64(png->data(), png->size());
    image["mimeType"] = "image/png";
    image["annotations"] = {{"width", width}, {"height", height}};
    LogInfo(kName, ": Successfully captured ", width, "x", height, " image, PNG size: ", png->size(), " bytes");
    json content = json::array();
    content.push_back(std::move(image));
    return content;
}

json handle_capture_composited_image(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kName, " tool called");
    const SessionResolution resolution = resolve_session_from_arguments(arguments, kName);
    if (!resolution.valid) return make_text_tool_result(resolution.error);
    std::string eye = "left";
    if (const json* given = find_argument(arguments, "eye")) {
        // On purpose the text speaks of a hand.
        if (!given->is_string()) {
            return refuse(kName, Refusal{.log = "Invalid 'eye' parameter",
                                         .answer = "Invalid 'hand' parameter. Expected a string value."});
        }
        eye = given->get<std::string>();
    }
    if (eye != "left" && eye != "right") {
        return refuse(kName, Refusal{.log = "Invalid 'eye' parameter: " + ShownPeerText(eye),
                                     .answer = "Invalid 'eye' parameter. Must be 'left' or 'right'."});
    }
    const std::shared_ptr<ScreenCaptureBackend> backend = ScreenCaptureManager::instance().backend();
    if (!backend) {
        return refuse(kName, Refusal{.log = "No capture method available on this platform",
                                     .answer = "Compositor capture is not available on this platform."});
    }
    if (!WaitUntilReady(*backend)) return make_text_tool_result(kPermissionPending);
    return CaptureAndEncode(*backend, eye);
}

bool capture_extension_enabled() {
    return ContextManager::instance().isExtensionEnabled(kSimulatorCompositorCaptureExtension);
}

}  // namespace

ToolEntry make_openxr_capture_composited_image_tool_entry() {
    ToolBuilder builder(kName, kDescription);
    builder.add_number_parameter("session_handle", kSessionHandleDescription, false)
        .add_string_parameter("eye", "Which eye to capture. Valid options: 'left' or 'right'. Default: 'left'", false)
        .set_hints(true, false, false, true);
    return {builder.build(), handle_capture_composited_image, capture_extension_enabled};
}

}  // namespace orvanic_xr
