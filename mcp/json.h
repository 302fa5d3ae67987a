// JSON as the whole system uses it: insertion-ordered, so that the order in which keys are written is the
// order on the wire. Text from outside is parsed here and text for outside is dumped here, nowhere else.
#pragma once

#include <cstddef>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace mcp {

using json = nlohmann::ordered_json;

// Nesting that a text may have. Copying and dumping a value recurse once a level, on stacks that belong to
// the host application, so a hostile text must not choose the depth.
inline constexpr std::size_t kMaxJsonDepth = 256;

// Members that one object may have: an ordered object compares each new key with all keys before it.
inline constexpr std::size_t kMaxJsonMembers = 4096;

// Values that a text may hold, itself and all below it. The smallest take 2 bytes of text and many times that of
// memory.
inline constexpr std::size_t kMaxJsonValues = 200'000;

// Memory of one value beside its text, on average over the most wasteful texts: its place in a container that has
// grown by doubling, and blocks of its own for text and children.
inline constexpr std::size_t kJsonValueBytes = 128;

// The value of `text`. Throws json::exception if it is no JSON, or std::runtime_error if it is beyond one of the
// limits above.
json parse_json(std::string_view text);

// What such an exception says, without the library's own name for it.
std::string reason_of(const std::exception& failure);

// Bytes of memory that the value of `text` takes at most beyond the length of `text`. Nothing is parsed for that.
// 0 if `text` is beyond one of the limits.
std::size_t json_overhead(std::string_view text);

// Compact text of `value`, or one indented by `indent` blanks. Bytes that are no UTF-8 become U+FFFD, so an
// answer never vanishes for the sake of a name that somebody encoded wrongly.
std::string dump_json(const json& value, int indent = -1);

}  // namespace mcp
