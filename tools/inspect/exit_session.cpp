#include "context/context_manager.h"
#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "diagnostics/number_text.h"
#include "layer/dispatch/dispatch.h"
#include "tools/inspect/inspect_tools.h"
#include "tools/json_conversions.h"
#include "tools/session_lookup.h"
#include "tools/tool_results.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

constexpr char kName[] = "openxr_exit_session";

constexpr char kDescription[] =
    "Request to exit the XR (OpenXR) session. This will call xrRequestExitSession to gracefully terminate the OpenXR "
    "session, and may lead to exit the OpenXR application too.";

json handle_exit_session(const json& arguments, const std::string& /*session_id*/) {
    const SessionResolution resolution = resolve_session_from_arguments(arguments, kName);
    if (!resolution.valid) return make_text_tool_result(resolution.error);
    if (!DispatchHolder::instance().has_table()) {
        return refuse(kName, Refusal{.log = "dispatch table is not valid", .answer = "Dispatch table is not valid."});
    }
    if (!DispatchHolder::instance().Slot(&NextDispatchTable::RequestExitSession)) {
        return refuse(kName, Refusal{.log = "xrRequestExitSession function is null",
                                     .answer = "xrRequestExitSession function is not available."});
    }
    LogInfo("Calling xrRequestExitSession with session handle: ", HexText(HandleValue(resolution.session)));
    const auto context = ContextManager::instance().getSessionContext(resolution.session);
    const XrResult result = context->Call(&NextDispatchTable::RequestExitSession, resolution.session);
    if (XR_FAILED(result)) {
        const std::string result_name = xr_result_to_string(result);
        LogError("xrRequestExitSession failed with result: ", result_name);
        return make_text_tool_result("Error: Failed to request session exit (error code: " + result_name + ").");
    }
    LogInfo("xrRequestExitSession succeeded");
    return make_text_tool_result("XR session exit requested successfully. Application should exit soon.");
}

}  // namespace

ToolEntry make_openxr_exit_session_tool_entry() {
    ToolBuilder builder(kName, kDescription);
    builder
        .add_number_parameter(
            "session_handle",
            "The XR session handle to terminate. Optional — if not provided, uses the current active session.", false)
        .set_hints(false, true, true, true);
    return {builder.build(), handle_exit_session, {}};
}

}  // namespace orvanic_xr
