#include "tools/session_lookup.h"

#include "context/context_manager.h"
#include "diagnostics/logger.h"
#include "diagnostics/number_text.h"
#include "tools/json_conversions.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

SessionResolution resolved(XrSession session) {
    return {session, true, {}};
}

SessionResolution unresolved(std::string error) {
    return {XR_NULL_HANDLE, false, std::move(error)};
}

// Written for the agent, which is to find out by itself what to do next.
std::string stale_handle_report(const std::string& provided, const std::string& active, const SessionState& current,
                                const std::string& tool_name) {
    std::string report =
        "STALE SESSION HANDLE ERROR\n\n"
        "## Problem\n"
        "The session_handle you provided (" +
        provided +
        ") refers to an old/stale XR session that is no longer active. "
        "The XR application has restarted or created a new session since you obtained this handle.\n\n"
        "## Current State\n"
        "- Your provided session handle: " +
        provided +
        "\n"
        "- Current active session handle: " +
        active +
        "\n"
        "- Session generation (restart count): " +
        std::to_string(current.generation) + "\n";
    if (current.generationStartTime > 0) {
        report += "- Last session restart time: " + iso8601_text(current.generationStartTime) + "\n";
    }
    report +=
        "\n"
        "## Root Cause\n"
        "This typically happens when:\n"
        "1. The XR application was restarted (closed and reopened)\n"
        "2. The user removed and re-wore the headset, causing a session reset\n"
        "3. The application internally recreated its XR session\n"
        "4. You are using a session handle from a previous conversation or cached state\n\n"
        "## How to Fix\n"
        "1. Call 'openxr_get_session_info' to retrieve the current valid session handle\n"
        "2. Use the new session handle returned in the 'handle' field for subsequent tool calls\n"
        "3. Do NOT reuse session handles from previous tool calls or cached data - always fetch fresh session info "
        "when needed\n\n"
        "## Example Recovery\n"
        "```\n"
        "// Step 1: Get current session info\n"
        "result = openxr_get_session_info()\n"
        "new_session_handle = result.handle\n\n"
        "// Step 2: Use the new handle\n" +
        tool_name +
        "(session_handle=new_session_handle, ...)\n"
        "```\n";
    return report;
}

}  // namespace

SessionResolution resolve_session_from_arguments(const json& arguments, const std::string& tool_name) {
    const auto handle = arguments.find("session_handle");
    if (handle != arguments.end() && handle->is_number()) {
        return validate_session_handle(HandleFromValue<XrSession>(clamped_uint64(*handle)), tool_name);
    }
    const SessionState current = ContextManager::instance().getSessionState();
    return current.valid ? resolved(current.session) : unresolved("Error: No valid XR session is currently active.");
}

SessionResolution validate_session_handle(XrSession session, const std::string& tool_name) {
    const SessionState current = ContextManager::instance().getSessionState();
    if (session == XR_NULL_HANDLE) {
        LogWarning(tool_name, ": provided session handle is null");
        return unresolved("Error: Provided session handle is null.");
    }
    if (!current.valid) {
        LogError(tool_name, ": No valid session is currently active in ContextManager");
        return unresolved("Error: No valid session is currently active.");
    }
    if (session == current.session) return resolved(session);

    const std::string provided = HexText(HandleValue(session));
    const std::string active = HexText(HandleValue(current.session));
    LogError(tool_name, ": Provided session handle does not match the active session. Provided: ", provided,
             ", Expected: ", active, ", Session generation: ", current.generation);
    return unresolved(stale_handle_report(provided, active, current, tool_name));
}

SessionLookup find_session_context(const json& arguments, const std::string& tool_name) {
    const SessionResolution resolution = resolve_session_from_arguments(arguments, tool_name);
    if (!resolution.valid) return {nullptr, make_text_tool_result(resolution.error)};
    std::shared_ptr<SessionContext> context = ContextManager::instance().getSessionContext(resolution.session);
    if (!context) {
        return {nullptr, refuse(tool_name, Refusal{.log = "SessionContext not found",
                                                   .answer = "SessionContext not found for the active session."})};
    }
    if (context->ended()) {
        return {nullptr, refuse(tool_name, Refusal{.log = "SessionContext is not valid",
                                                   .answer = "SessionContext is not valid."})};
    }
    return {std::move(context), {}};
}

XrSpace reference_space_for_name(const std::string& name, const SessionContext& context) {
    if (name == "local") return context.localSpace;
    if (name == "stage") return context.stageSpace;
    if (name == "local_floor") return context.localFloorSpace;
    if (name == "view") return context.viewSpace;
    return XR_NULL_HANDLE;
}

std::string default_base_space() {
    return ContextManager::instance().isExtensionEnabled("XR_EXT_local_floor") ? "local_floor" : "local";
}

std::string invalid_base_space_text(const std::string& name) {
    return "Invalid or unavailable base_space '" + ShownPeerText(name) +
           "'. Valid options: 'local', 'stage', 'local_floor', 'view'.";
}

std::string base_space_to_read_description() {
    return "The base reference space to locate against. Valid options: 'local' (local reference space, always "
           "available), 'stage' (stage reference space), 'local_floor' (local floor reference space), 'view' (view "
           "reference space). Default: '" +
           default_base_space() + "'";
}

bool extension_enabled(const InstanceState& instance_data, const std::string& name) {
    return instance_data.enabledExtensions.count(name) > 0;
}

}  // namespace orvanic_xr
