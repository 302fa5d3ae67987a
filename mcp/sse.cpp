#include "mcp/sse.h"

#include <random>

namespace mcp {

std::string endpoint_frame(const std::string& session_uri) {
    return "event: endpoint\r\ndata: " + session_uri + "\r\n\r\n";
}

std::string heartbeat_frame(std::uint64_t counter) {
    return "event: heartbeat\r\ndata: " + std::to_string(counter) + "\r\n\r\n";
}

std::string session_uri(const std::string& msg_endpoint, const std::string& session_id) {
    return msg_endpoint + "?session_id=" + session_id;
}

std::string make_session_id() {
    std::random_device seed("default");
    std::mt19937 generator(seed());
    std::uniform_int_distribution<unsigned> digit(0, 15);
    std::string id = "________-____-____-____-____________";
    for (char& place : id) {
        if (place == '_') place = "0123456789abcdef"[digit(generator)];
    }
    return id;
}

}  // namespace mcp
