#include "mcp/json.h"

#include <stdexcept>

namespace mcp {
namespace {

// True if brackets outside of strings nest deeper than allowed. Malformed text is the parser's business: here
// it is only walked, byte by byte.
bool nests_too_deep(std::string_view text) {
    std::size_t depth = 0;
    bool in_string = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (in_string) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                in_string = false;
            }
        } else if (c == '"') {
            in_string = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMaxJsonDepth) return true;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

}  // namespace

json parse_json(std::string_view text) {
    if (nests_too_deep(text)) throw std::runtime_error("JSON is nested deeper than 256 levels");
    return json::parse(text.begin(), text.end());
}

std::string dump_json(const json& value, int indent) {
    return value.dump(indent, ' ', false, json::error_handler_t::replace);
}

}  // namespace mcp
