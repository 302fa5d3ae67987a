// Results as they stand in the log.
#pragma once

#include <string>

#include "diagnostics/number_text.h"
#include "mcp/json.h"

namespace orvanic_xr {

// A number as "%f" writes it, an array of numbers as "[1.000000, 2.000000]".
inline std::string result_text(const mcp::json& result) {
    if (!result.is_array()) return FixedText(result.get<double>());
    std::string text = "[";
    for (const mcp::json& component : result) {
        if (text.size() > 1) text += ", ";
        text += FixedText(component.get<double>());
    }
    return text + "]";
}

}  // namespace orvanic_xr
