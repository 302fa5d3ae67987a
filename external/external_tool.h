// Tools that the application offers: how a call of one is carried out. The records and the rules of the callback
// stand in include/velmoor/external_tool.h.
//
// A callback without deferral flags runs at once on the thread that serves the call. With one, the call waits
// while ExternalToolManager lends it the application's own thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "mcp/json.h"
#include "velmoor/external_tool.h"

namespace orvanic_xr {

using mcp::json;

class ExternalToolManager;

struct ExternalTool {
    std::string name;
    PFN_xrOrvanicExternalToolCallbackKESTX1 callback = nullptr;
    std::uint32_t callbackFlags = 0;
    void* userData = nullptr;
};

inline constexpr std::uint32_t kDeferralFlags = XR_ORVANIC_EXTERNAL_TOOL_CALLBACK_ON_POLL_EVENT_BIT_KESTX1 |
                                                XR_ORVANIC_EXTERNAL_TOOL_CALLBACK_ON_BEGIN_FRAME_BIT_KESTX1;
inline constexpr std::size_t kExternalResultSize = 65536;
inline constexpr std::uint64_t kLargestExternalResult = std::uint64_t{256} << 20;

// Runs the tool and answers its content; throws nothing. Blocks until the callback returned, or for the
// manager's time limit if it is deferred.
json ExecuteExternalTool(const ExternalTool& tool, const json& arguments, ExternalToolManager& manager);
json ExecuteExternalTool(const ExternalTool& tool, const json& arguments);

}  // namespace orvanic_xr
