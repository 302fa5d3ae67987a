#include "context/context_manager.h"
#include "tools/arguments.h"
#include "tools/inspect/cached_record.h"
#include "tools/inspect/inspect_tools.h"
#include "tools/json_conversions.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

constexpr char kDescription[] =
    "Get the current XR (OpenXR) session handle and state information from the cached session state, including the "
    "session lifecycle state (IDLE, READY, SYNCHRONIZED, VISIBLE, FOCUSED, etc.)";

constexpr CachedRecordTexts kTexts = {
    "openxr_get_session_info tool called, isValid=",
    "openxr_get_session_info: session info not yet available",
    "Session info not yet available. XrSession has not been created.",
    "openxr_get_session_info: returning cached data",
};

// Of the current state and of a history entry, which have the same fields.
template <typename Record>
json session_to_json(const Record& record) {
    return {{"session", handle_to_json(HandleValue(record.session))},
            {"state", {{"value", static_cast<std::int32_t>(record.state)}, {"name", session_state_name(record.state)}}},
            {"timestamp_utc", unix_time_to_json(record.timestamp)}};
}

json session_history_to_json() {
    json history = json::array();
    for (const SessionStateHistoryEntry& entry : ContextManager::instance().getSessionHistory()) {
        history.push_back(session_to_json(entry));
    }
    LogInfo("openxr_get_session_info: included history with ", history.size(), " entries");
    return history;
}

json describe_session(const SessionState& session, const json& arguments) {
    json output = session_to_json(session);
    if (flag_argument(arguments, "include_history")) output["history"] = session_history_to_json();
    return output;
}

json handle_get_session_info(const json& arguments, const std::string& /*session_id*/) {
    return answer_from_cache(kTexts, ContextManager::instance().getSessionState(),
                             [&](const SessionState& session) { return describe_session(session, arguments); });
}

}  // namespace

ToolEntry make_openxr_get_session_info_tool_entry() {
    ToolBuilder builder("openxr_get_session_info", kDescription);
    builder
        .add_boolean_parameter("include_history", "Whether to include the full session state transition history", false)
        .set_hints(true, false, false, false);
    return {builder.build(), handle_get_session_info, {}};
}

}  // namespace orvanic_xr
