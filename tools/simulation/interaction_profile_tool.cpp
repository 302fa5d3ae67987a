// openxr_get_active_interaction_profile reports which interaction profile the runtime has bound for each hand,
// so that an agent learns why simulated input does or does not register.
#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "layer/dispatch/dispatch.h"
#include "tools/session_lookup.h"
#include "tools/simulation/simulation_arguments.h"
#include "tools/simulation/simulation_tools.h"
#include "tools/tool_results.h"

namespace orvanic_xr {
namespace {

constexpr char kName[] = "openxr_get_active_interaction_profile";

constexpr char kDescription[] =
    "Get the OpenXR interaction profile the runtime currently has bound for each controller hand (e.g. "
    "'/interaction_profiles/kest/pronto_controller_plus', '/interaction_profiles/ext/hand_interaction_ext'). The "
    "bound profile determines which input source paths (button/trigger/squeeze/thumbstick) actually drive the "
    "application's actions, so it is essential for diagnosing why simulated input does or does not register. Returns "
    "null for a hand whose profile has not yet been selected by the runtime (e.g. controller offline).";

constexpr char kNoneBound[] =
    "No interaction profile currently bound (controller may be offline, or the runtime has not yet selected one).";

json FailedEntry(const std::string& error) {
    return {{"error", error}};
}

json NoneBoundEntry() {
    return {{"profile", nullptr}, {"note", kNoneBound}};
}

// The entry of one hand. A failing runtime call is data here, not a failure of the tool.
json QueryInteractionProfile(const SessionContext& context, const std::string& hand) {
    const std::string path_text = "/user/hand/" + hand;
    const DispatchHolder& next = DispatchHolder::instance();
    if (!next.Slot(&NextDispatchTable::GetCurrentInteractionProfile) || !next.Slot(&NextDispatchTable::StringToPath) ||
        !next.Slot(&NextDispatchTable::PathToString)) {
        return FailedEntry("Runtime does not expose xrGetCurrentInteractionProfile");
    }
    const auto failed = [&](const char* function, XrResult result) {
        return FailedEntry(std::string(function) + " failed for " + path_text + " (" +
                           std::to_string(static_cast<int>(result)) + ")");
    };
    XrPath path = XR_NULL_PATH;
    const XrInstance instance = context.instance();
    XrResult result = context.Call(&NextDispatchTable::StringToPath, instance, path_text.c_str(), &path);
    if (XR_FAILED(result)) return failed("xrStringToPath", result);
    XrInteractionProfileState state{XR_TYPE_INTERACTION_PROFILE_STATE, nullptr, XR_NULL_PATH};
    result = context.Call(&NextDispatchTable::GetCurrentInteractionProfile, context.session, path, &state);
    if (XR_FAILED(result)) return failed("xrGetCurrentInteractionProfile", result);
    if (state.interactionProfile == XR_NULL_PATH) return NoneBoundEntry();
    std::array<char, 256> buffer{};
    std::uint32_t count = 0;
    result = context.Call(&NextDispatchTable::PathToString, instance, state.interactionProfile,
                          static_cast<std::uint32_t>(buffer.size()), &count, buffer.data());
    if (XR_FAILED(result)) return failed("xrPathToString", result);
    const std::string profile(buffer.data(), strnlen(buffer.data(), buffer.size()));
    if (profile.empty()) return NoneBoundEntry();
    return {{"profile", profile}};
}

json handle_get_active_interaction_profile(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kName, " tool called");
    const std::string hand = string_argument(arguments, "hand", "both");
    if (hand != "left" && hand != "right" && hand != "both") {
        return make_text_tool_result("Error: Invalid 'hand' parameter. Must be 'left', 'right', or 'both', got '" +
                                     hand + "'.");
    }
    const SessionResolution resolution = resolve_session_from_arguments(arguments, kName);
    if (!resolution.valid) return make_text_tool_result(resolution.error);
    const XrInstance instance = ContextManager::instance().getInstanceHandle();
    if (instance == XR_NULL_HANDLE) return make_text_tool_result("Error: No active OpenXR instance.");
    const auto context = ContextManager::instance().getSessionContext(resolution.session);
    json result = json::object();
    for (const char* side : {"left", "right"}) {
        if (hand == side || hand == "both") result[side] = QueryInteractionProfile(*context, side);
    }
    return make_json_tool_result(std::move(result));
}

}  // namespace

ToolEntry make_openxr_get_active_interaction_profile_tool_entry() {
    ToolBuilder builder(kName, kDescription);
    builder.add_number_parameter("session_handle", kSessionHandleDescription, false)
        .add_string_parameter("hand",
                              "Which hand to query: 'left', 'right', or 'both' (default). When 'both' is used, the "
                              "response contains a separate entry per hand.",
                              false)
        .set_hints(true, false, false, true);
    return {builder.build(), handle_get_active_interaction_profile, {}};
}

}  // namespace orvanic_xr
