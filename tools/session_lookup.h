// What every tool asks about sessions, spaces and extensions of the running application.
#pragma once

#include <openxr/openxr.h>

#include <memory>
#include <string>

#include "context/records.h"
#include "context/session_context.h"
#include "mcp/json.h"
#include "tools/tool_results.h"

namespace orvanic_xr {

using mcp::json;

// Of the schema's `session_handle`.
inline constexpr char kSessionHandleDescription[] =
    "The XR session handle. Optional — if not provided, uses the current active session.";

struct SessionResolution {
    XrSession session = XR_NULL_HANDLE;
    bool valid = false;
    std::string error;  // empty if valid; what the agent reads otherwise, "Error: " or the stale handle report
};

// The session that `arguments` name in a numeric `session_handle`, which must be the active one, or else the
// active session. `tool_name` heads the log lines and stands in the stale handle report.
SessionResolution resolve_session_from_arguments(const json& arguments, const std::string& tool_name);
SessionResolution validate_session_handle(XrSession session, const std::string& tool_name);

// What the tools that read poses work on, or what they answer, already logged, where there is none.
struct SessionLookup {
    std::shared_ptr<SessionContext> context;
    json refusal;
};
SessionLookup find_session_context(const json& arguments, const std::string& tool_name);

// Space of `context` for "local", "stage", "local_floor" or "view", by exact name; null for any other name and
// for a space that the context does not hold.
XrSpace reference_space_for_name(const std::string& name, const SessionContext& context);
// "local_floor" if the instance enabled XR_EXT_local_floor, else "local".
std::string default_base_space();
// The text that names a space which is not to be had, and the schema's `base_space` of tools that locate.
std::string invalid_base_space_text(const std::string& name);
std::string base_space_to_read_description();
bool extension_enabled(const InstanceState& instance_data, const std::string& name);

}  // namespace orvanic_xr
