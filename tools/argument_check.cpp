#include "tools/argument_check.h"

#include <algorithm>
#include <string>
#include <utility>

#include "diagnostics/logger.h"

namespace orvanic_xr {
namespace {

constexpr int kWarnings = 8;  // of one call; a caller may send thousands of arguments
constexpr std::size_t kShownName = 64;

bool is_of_kind(const json& value, const std::string& kind) {
    if (kind == "string") return value.is_string();
    if (kind == "number") return value.is_number();
    if (kind == "boolean") return value.is_boolean();
    return kind == "array" ? value.is_array() : value.is_object();
}

// What the schema of a parameter asks for, as "array of 3", if `value` is something else.
std::string unmet_demand(const json& schema, const json& value) {
    const auto kind = schema.find("type");
    if (value.is_null() || kind == schema.end()) return {};  // a choice of schemas is the tool's to look at
    std::string demand = kind->get<std::string>();
    const std::size_t shortest = schema.value("minItems", std::size_t{0});
    const std::size_t longest = schema.value("maxItems", static_cast<std::size_t>(-1));
    if (shortest == longest) demand += " of " + std::to_string(shortest);
    if (!is_of_kind(value, *kind)) return demand;
    if (!value.is_array()) return {};
    if (value.size() < shortest || value.size() > longest) return demand;
    const std::string item_kind = schema.value("items", json::object()).value("type", "");
    const auto fits = [&](const json& item) { return item_kind.empty() || is_of_kind(item, item_kind); };
    return std::all_of(value.begin(), value.end(), fits) ? std::string() : demand + ", each a " + item_kind;
}

void warn(const std::string& tool_name, const json& properties, const json& arguments) {
    if (!arguments.is_object()) return;
    int warnings = 0;
    for (const auto& [name, value] : arguments.items()) {
        const auto known = properties.find(name);
        const std::string demand = known == properties.end() ? std::string() : unmet_demand(*known, value);
        if (known != properties.end() && demand.empty()) continue;
        if (++warnings > kWarnings) return;
        const std::string shown = mcp::dump_json(name.substr(0, kShownName));
        if (demand.empty()) {
            LogWarning(tool_name, ": no parameter is called ", shown, ": ignored");
        } else {
            LogWarning(tool_name, ": argument ", shown, " does not fit, the schema says: ", demand);
        }
    }
}

}  // namespace

ToolHandler warn_of_unfit_arguments(const mcp::tool& tool, ToolHandler handler) {
    return [name = tool.name, properties = tool.input_schema.value("properties", json::object()),
            handler = std::move(handler)](const json& arguments, const std::string& session_id) {
        warn(name, properties, arguments);
        return handler(arguments, session_id);
    };
}

}  // namespace orvanic_xr
