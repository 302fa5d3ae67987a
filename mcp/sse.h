// The texts of the event stream: frames as they go over the wire, and the ids and addresses of sessions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mcp {

inline constexpr std::string_view kKeepaliveComment = ": keepalive\r\n\r\n";

// Around the JSON text of an answer.
inline constexpr std::string_view kMessageFrameBegin = "event: message\r\ndata: ";
inline constexpr std::string_view kFrameEnd = "\r\n\r\n";

std::string endpoint_frame(const std::string& session_uri);
std::string heartbeat_frame(std::uint64_t counter);

// Where a client posts to: relative to the address of the stream.
std::string session_uri(const std::string& msg_endpoint, const std::string& session_id);

// 32 random hexadecimal digits in groups of 8, 4, 4, 4 and 12: the shape of a UUID, with no digit fixed.
std::string make_session_id();

}  // namespace mcp
