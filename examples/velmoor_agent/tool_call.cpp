#include "examples/velmoor_agent/tool_call.h"

namespace agent {

ToolAnswer CallTool(mcp::blocking_client& client, const std::string& name, const json& arguments) {
    const json result = client.call_tool(name, arguments);
    ToolAnswer answer;
    answer.is_error = result.value("isError", false);
    answer.text = mcp::text_of(result);
    for (const json& item : result.value("content", json::array())) {
        if (item.value("type", "") == "image") answer.images.push_back(item.value("data", ""));
    }
    return answer;
}

}  // namespace agent
