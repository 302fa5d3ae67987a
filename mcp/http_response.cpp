#include "mcp/http_response.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace mcp {
namespace {

const char* reason_of(int status) {
    switch (status) {
        case 200:
            return "OK";
        case 202:
            return "Accepted";
        case 204:
            return "No Content";
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 406:
            return "Not Acceptable";
        case 408:
            return "Request Timeout";
        case 413:
            return "Payload Too Large";
        case 415:
            return "Unsupported Media Type";
        case 501:
            return "Not Implemented";
        case 503:
            return "Service Unavailable";
        default:
            return "Internal Server Error";
    }
}

void append_header(std::string& text, std::string_view name, std::string_view value) {
    text.append(name).append(": ").append(value).append("\r\n");
}

}  // namespace

std::string response_head(const http_answer& answer, bool is_last, bool head_only) {
    const bool tells_connection = std::any_of(answer.headers.begin(), answer.headers.end(), [](const auto& header) {
        return std::string_view(header.name) == "Connection";
    });
    std::string text = "HTTP/1.1 " + std::to_string(answer.status) + " " + reason_of(answer.status) + "\r\n";
    if (!answer.content_type.empty()) append_header(text, "Content-Type", answer.content_type);
    if (is_last && !tells_connection) append_header(text, "Connection", "close");
    for (const http_header& header : answer.headers) append_header(text, header.name, header.value);
    for (const auto& [name, value] : answer.own_headers) append_header(text, name, value);
    // A second less than an idle connection lasts, so that a client that goes by it never sends into its end.
    if (!is_last) append_header(text, "Keep-Alive", "timeout=4, max=100");
    if (answer.stream) {
        append_header(text, "Transfer-Encoding", "chunked");
    } else if (answer.status != 204 && !head_only) {
        append_header(text, "Content-Length", std::to_string(answer.body.size()));
    }
    return text += "\r\n";
}

bool chunked_sink::write(std::string_view bytes) {
    if (bytes.empty()) return true;  // an empty chunk would be the end
    std::array<char, 16> size;
    const auto [end, error] = std::to_chars(size.data(), size.data() + size.size(), bytes.size(), 16);
    return connection_.write({{size.data(), static_cast<std::size_t>(end - size.data())}, "\r\n", bytes, "\r\n"});
}

}  // namespace mcp
