#include "tools/tool_results.h"

#include <cmath>
#include <utility>

#include "diagnostics/logger.h"

namespace orvanic_xr {
namespace {

json text_content(std::string text) {
    json item = json::object();
    item["type"] = "text";
    item["text"] = std::move(text);
    json content = json::array();
    content.push_back(std::move(item));
    return content;
}

// A number too large to be scaled has no decimals to round.
double rounded(double number, double scale) {
    const double scaled = number * scale;
    if (!std::isfinite(scaled)) return number;
    const double result = std::round(scaled) / scale;
    return result == 0.0 ? 0.0 : result;
}

void round_numbers_to_scale(json& value, double scale) {
    if (value.is_structured()) {
        for (json& element : value) round_numbers_to_scale(element, scale);
    } else if (auto* number = value.get_ptr<json::number_float_t*>()) {
        *number = rounded(*number, scale);
    }
}

}  // namespace

json make_text_tool_result(const std::string& text) {
    return text_content(text);
}

json refuse(const std::string& tool_name, const Refusal& refusal) {
    LogError(tool_name, ": ", refusal.log);
    return make_text_tool_result("Error: " + refusal.answer);
}

json refuse(const std::string& tool_name, const std::string& message) {
    return refuse(tool_name, Refusal{.log = message, .answer = message});
}

json make_json_tool_result(json value) {
    round_json_numbers(value, 4);
    return text_content(mcp::dump_json(value, 2));
}

void round_json_numbers(json& value, int decimals) {
    round_numbers_to_scale(value, std::pow(10.0, decimals));
}

}  // namespace orvanic_xr
