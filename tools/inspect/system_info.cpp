#include "context/context_manager.h"
#include "tools/inspect/cached_record.h"
#include "tools/inspect/inspect_tools.h"
#include "tools/json_conversions.h"

namespace orvanic_xr {
namespace {

constexpr char kDescription[] =
    "Get the XR system information including system ID, vendor ID, system name, graphics properties (max swapchain "
    "dimensions, max layer count), and tracking properties (orientation and position tracking capabilities). This "
    "information is obtained from xrGetSystemProperties.";

// On purpose the answer speaks of XrSession: the system is read when a session is made.
constexpr CachedRecordTexts kTexts = {
    "openxr_get_system_info tool called, isValid=",
    "openxr_get_system_info: system info not yet available",
    "System info not yet available. XrSession has not been created.",
    "openxr_get_system_info: returning cached system data",
};

json describe_system(const SystemState& system) {
    const XrSystemGraphicsProperties& graphics = system.graphicsProperties;
    const XrSystemTrackingProperties& tracking = system.trackingProperties;
    return {
        {"system_id", system.systemId},
        {"vendor_id", system.vendorId},
        {"system_name", system.systemName},
        {"graphics_properties",
         {{"max_swapchain_image_height", graphics.maxSwapchainImageHeight},
          {"max_swapchain_image_width", graphics.maxSwapchainImageWidth},
          {"max_layer_count", graphics.maxLayerCount}}},
        {"tracking_properties",
         {{"orientation_tracking", tracking.orientationTracking == XR_TRUE},
          {"position_tracking", tracking.positionTracking == XR_TRUE}}},
        {"timestamp_utc", unix_time_to_json(system.timestamp)},
    };
}

json handle_get_system_info(const json& /*arguments*/, const std::string& /*session_id*/) {
    return answer_from_cache(kTexts, ContextManager::instance().getSystemState(), describe_system);
}

}  // namespace

ToolEntry make_openxr_get_system_info_tool_entry() {
    ToolBuilder builder("openxr_get_system_info", kDescription);
    builder.set_hints(true, false, true, false);
    return {builder.build(), handle_get_system_info, {}};
}

}  // namespace orvanic_xr
