#include "external/external_result.h"

#include <algorithm>
#include <exception>
#include <optional>

#include "diagnostics/logger.h"
#include "tools/tool_results.h"

namespace orvanic_xr {
namespace {

bool IsTextItem(const json& value) {
    return value.is_object() && value.contains("type") && value["type"] == "text" && value.contains("text");
}

std::optional<json> Parse(const std::string& text) {
    try {
        return mcp::parse_json(text);
    } catch (const std::exception& exception) {
        LogWarning("External tool returned non-JSON result, wrapping as text: ",
                   PeerText{exception.what(), kErrorTextBytes});
        return std::nullopt;
    }
}

json Shape(json value) {
    if (value.is_array() && !value.empty() && std::all_of(value.begin(), value.end(), IsTextItem)) return value;
    if (IsTextItem(value)) {
        json content = json::array();
        content.push_back(std::move(value));
        return content;
    }
    if (value.is_structured() || value.is_null()) return make_text_tool_result(mcp::dump_json(value, 2));
    return make_text_tool_result(mcp::dump_json(value));
}

}  // namespace

json ShapeExternalToolResult(const std::string& text) {
    try {
        std::optional<json> value = Parse(text);
        return value ? Shape(std::move(*value)) : make_text_tool_result(text);
    } catch (const std::exception& exception) {
        LogError("Error processing external tool result: ", PeerText{exception.what(), kErrorTextBytes});
        return make_text_tool_result(std::string("Error processing result: ") + exception.what());
    }
}

}  // namespace orvanic_xr
