#include "mcp/json.h"

#include <array>
#include <stdexcept>

namespace mcp {
namespace {

// What `text` asks for before it is parsed. Malformed text is the parser's business, which stops at the fault:
// what it has built by then is counted here in full.
struct json_extent {
    std::size_t values = 1;
    const char* excess = nullptr;  // the limit that `text` is beyond; the count ends there
};

bool closes_at_once(std::string_view text, std::size_t opening) {
    const std::size_t next = text.find_first_not_of(" \t\r\n", opening + 1);
    return next != std::string_view::npos && (text[next] == ']' || text[next] == '}');
}

std::size_t end_of_string(std::string_view text, std::size_t opening) {
    std::size_t i = opening + 1;
    while (i < text.size() && text[i] != '"') i += text[i] == '\\' ? 2 : 1;
    return i;
}

json_extent measure(std::string_view text) {
    json_extent extent;
    std::array<std::size_t, kMaxJsonDepth + 1> members;  // so far, of each open object
    std::size_t depth = 0;
    members[0] = 0;
    for (std::size_t i = 0; i < text.size() && !extent.excess; ++i) {
        switch (text[i]) {
            case '"':
                i = end_of_string(text, i);
                break;
            case '[':
            case '{':
                if (depth == kMaxJsonDepth) {
                    extent.excess = "JSON is nested deeper than 256 levels";
                    break;
                }
                members[++depth] = 0;
                if (!closes_at_once(text, i)) ++extent.values;
                break;
            case ']':
            case '}':
                if (depth > 0) --depth;
                break;
            case ':':
                if (++members[depth] > kMaxJsonMembers)
                    extent.excess = "JSON holds an object of more than 4096 members";
                break;
            case ',':
                ++extent.values;
                break;
            default:
                break;
        }
        if (extent.values > kMaxJsonValues) extent.excess = "JSON holds more than 200000 values";
    }
    return extent;
}

}  // namespace

json parse_json(std::string_view text) {
    if (const char* excess = measure(text).excess) throw std::runtime_error(excess);
    return json::parse(text.begin(), text.end());
}

std::string reason_of(const std::exception& failure) {
    const std::string_view text = failure.what();
    const std::size_t end = text.starts_with("[json.exception") ? text.find("] ") : std::string_view::npos;
    return std::string(end == std::string_view::npos ? text : text.substr(end + 2));
}

std::size_t json_overhead(std::string_view text) {
    const json_extent extent = measure(text);
    return extent.excess ? 0 : extent.values * kJsonValueBytes;
}

std::string dump_json(const json& value, int indent) {
    return value.dump(indent, ' ', false, json::error_handler_t::replace);
}

}  // namespace mcp
