#include "doctor/mcp_greeting.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <exception>

#include "mcp/json.h"

namespace orvanic_xr {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{2};
// What a stranger may send before we stop listening.
constexpr std::size_t kMostBytes = 65536;

constexpr std::string_view kInitialize =
    R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18",)"
    R"("capabilities":{},"clientInfo":{"name":"velmoor-doctor","version":"1"}}})";

// A connection to loopback that is closed with it. Does nothing if it could not be made.
class Connection {
 public:
    Connection(int family, std::uint16_t port, Clock::time_point deadline) : deadline_(deadline) {
        fd_ = socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        sockaddr_in loopback4{};
        loopback4.sin_family = AF_INET;
        loopback4.sin_port = htons(port);
        loopback4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        sockaddr_in6 loopback6{};
        loopback6.sin6_family = AF_INET6;
        loopback6.sin6_port = htons(port);
        loopback6.sin6_addr = in6addr_loopback;
        // It is under way, or has failed: what comes of it shows when something is sent.
        if (family == AF_INET6) {
            (void)connect(fd_, reinterpret_cast<const sockaddr*>(&loopback6), sizeof(loopback6));
        } else {
            (void)connect(fd_, reinterpret_cast<const sockaddr*>(&loopback4), sizeof(loopback4));
        }
    }
    ~Connection() {
        if (fd_ >= 0) close(fd_);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // A request fits into the buffers of a fresh connection.
    void Send(std::string_view request) {
        if (Ready(POLLOUT)) send(fd_, request.data(), request.size(), MSG_NOSIGNAL);
    }

    // Waits for an event's data that begins with `start`.
    std::optional<std::string> Await(std::string_view start) {
        for (;;) {
            if (auto data = EventData(received_, start)) return data;
            std::array<char, 4096> bytes;
            if (received_.size() > kMostBytes || !Ready(POLLIN)) return std::nullopt;
            const ssize_t count = recv(fd_, bytes.data(), bytes.size(), 0);
            if (count <= 0) return std::nullopt;
            received_.append(bytes.data(), static_cast<std::size_t>(count));
        }
    }

 private:
    bool Ready(short event) const {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
        pollfd waiting{fd_, event, 0};
        return fd_ >= 0 && left > 0 && poll(&waiting, 1, static_cast<int>(left)) > 0;
    }

    int fd_ = -1;
    Clock::time_point deadline_;
    std::string received_;
};

std::string HostLine(int family, std::uint16_t port) {
    return std::string("Host: ") + (family == AF_INET6 ? "[::1]" : "127.0.0.1") + ":" + std::to_string(port) + "\r\n";
}

std::optional<std::string> ServerInfo(const std::string& answer) try {
    const mcp::json info = mcp::parse_json(answer).at("result").at("serverInfo");
    return info.at("name").get<std::string>() + " " + info.at("version").get<std::string>();
} catch (const std::exception&) {
    return std::nullopt;
}

}  // namespace

std::optional<std::string> EventData(std::string_view stream, std::string_view start) {
    constexpr std::string_view kField = "data: ";
    while (!stream.empty()) {
        const std::size_t end = stream.find('\n');
        if (end == std::string_view::npos) return std::nullopt;
        std::string_view line = stream.substr(0, end);
        stream.remove_prefix(end + 1);
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (!line.starts_with(kField)) continue;
        line.remove_prefix(kField.size());
        if (line.starts_with(start)) return std::string(line);
    }
    return std::nullopt;
}

std::optional<std::string> GreetMcpServer(int family, std::uint16_t port) {
    const Clock::time_point deadline = Clock::now() + kPatience;
    const std::string host = HostLine(family, port);
    Connection stream(family, port, deadline);
    stream.Send("GET /sse HTTP/1.1\r\n" + host + "Accept: text/event-stream\r\n\r\n");
    const std::optional<std::string> endpoint = stream.Await("/");
    if (!endpoint) return std::nullopt;
    Connection post(family, port, deadline);
    post.Send("POST " + *endpoint + " HTTP/1.1\r\n" + host + "Content-Type: application/json\r\nContent-Length: " +
              std::to_string(kInitialize.size()) + "\r\n\r\n" + std::string(kInitialize));
    const std::optional<std::string> answer = stream.Await("{");
    return answer ? ServerInfo(*answer) : std::nullopt;
}

}  // namespace orvanic_xr
