#include "tests/fakes/sse_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <utility>

namespace mcp {
namespace {

int connect_to(int port, const char* address) {
    sockaddr_storage storage{};
    socklen_t size = 0;
    if (auto* v4 = reinterpret_cast<sockaddr_in*>(&storage); inet_pton(AF_INET, address, &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(static_cast<in_port_t>(port));
        size = sizeof *v4;
    } else if (auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
               inet_pton(AF_INET6, address, &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(static_cast<in_port_t>(port));
        size = sizeof *v6;
    }
    const int made = socket(storage.ss_family, SOCK_STREAM, 0);
    const int on = 1;
    setsockopt(made, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(made, reinterpret_cast<sockaddr*>(&storage), size) != 0) {
        close(made);
        throw std::runtime_error("cannot connect");
    }
    return made;
}

}  // namespace

raw_socket::raw_socket(int port, const char* address) : socket_(connect_to(port, address)) {}

raw_socket::~raw_socket() {
    if (socket_ >= 0) close(socket_);
}

raw_socket::raw_socket(raw_socket&& other) noexcept
    : socket_(std::exchange(other.socket_, -1)), received_(std::move(other.received_)) {}

void raw_socket::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) throw std::runtime_error("cannot send");
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

bool raw_socket::receive(std::chrono::steady_clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd waiting{.fd = socket_, .events = POLLIN, .revents = 0};
    if (left.count() < 0 || poll(&waiting, 1, static_cast<int>(left.count())) <= 0) {
        throw std::runtime_error("nothing came in time; so far: " + received_.substr(0, 500));
    }
    std::array<char, 65536> bytes;
    errno = 0;
    const ssize_t count = recv(socket_, bytes.data(), bytes.size(), 0);
    if (count > 0) received_.append(bytes.data(), static_cast<std::size_t>(count));
    return count > 0;
}

std::string raw_socket::read_until(std::string_view end, std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    std::size_t found;
    while ((found = received_.find(end)) == std::string::npos) {
        if (!receive(deadline)) throw std::runtime_error("ended after: " + received_.substr(0, 500));
    }
    return read_bytes(found + end.size());
}

std::string raw_socket::read_bytes(std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + kClientPatience;
    while (received_.size() < count) {
        if (!receive(deadline)) throw std::runtime_error("ended after: " + received_.substr(0, 500));
    }
    std::string bytes = received_.substr(0, count);
    received_.erase(0, count);
    return bytes;
}

std::string raw_socket::read_to_end() {
    const auto deadline = std::chrono::steady_clock::now() + kClientPatience;
    while (receive(deadline)) {
    }
    if (errno != 0) throw std::runtime_error("reset after: " + received_.substr(0, 500));
    return std::exchange(received_, {});
}

bool raw_socket::ends_within(std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    try {
        while (receive(deadline)) received_.clear();
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

bool raw_socket::is_open() const {
    char byte;
    return !received_.empty() || recv(socket_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) != 0;
}

void raw_socket::vanish() {
    const linger at_once{.l_onoff = 1, .l_linger = 0};
    setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close(std::exchange(socket_, -1));
}

std::string http_reply::header(const std::string& name) const {
    const std::size_t found = head.find("\r\n" + name + ": ");
    if (found == std::string::npos) return {};
    const std::size_t begin = found + name.size() + 4;
    return head.substr(begin, head.find("\r\n", begin) - begin);
}

http_reply http_exchange(raw_socket& socket, std::string_view request) {
    socket.send(request);
    http_reply reply;
    reply.head = socket.read_until("\r\n\r\n");
    reply.head.resize(reply.head.size() - 4);
    reply.status = std::stoi(reply.head.substr(reply.head.find(' ') + 1, 3));
    const std::string length = reply.header("Content-Length");
    if (!length.empty()) reply.body = socket.read_bytes(std::stoul(length));
    return reply;
}

std::string post_request(const std::string& target, const std::string& body) {
    return "POST " + target + " HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\n\r\n" + body;
}

sse_client::sse_client(int port, const char* address) : port_(port), address_(address), stream_(port, address) {
    stream_.send("GET /sse HTTP/1.1\r\nHost: localhost\r\nAccept: text/event-stream\r\n\r\n");
    head_ = stream_.read_until("\r\n\r\n");
    const sse_event endpoint = next_event();
    if (endpoint.type != "endpoint") throw std::runtime_error("the first event is " + endpoint.type);
    session_uri_ = endpoint.data;
}

sse_event sse_client::next_event(std::chrono::milliseconds patience) {
    std::size_t end;
    while ((end = unparsed_.find("\r\n\r\n")) == std::string::npos) {
        const std::string size = stream_.read_until("\r\n", patience);
        unparsed_ += stream_.read_bytes(std::stoul(size, nullptr, 16));
        stream_.read_bytes(2);
    }
    const std::string frame = unparsed_.substr(0, end);
    unparsed_.erase(0, end + 4);
    if (frame.starts_with(": ")) return {"comment", frame.substr(2)};
    const std::size_t data = frame.find("\r\ndata: ");
    if (!frame.starts_with("event: ") || data == std::string::npos) throw std::runtime_error("bad frame: " + frame);
    return {frame.substr(7, data - 7), frame.substr(data + 8)};
}

std::string sse_client::next_message() {
    const auto deadline = std::chrono::steady_clock::now() + kClientPatience;
    while (std::chrono::steady_clock::now() < deadline) {
        sse_event event = next_event();
        if (event.type == "message") return event.data;
    }
    throw std::runtime_error("no message came in time");
}

http_reply sse_client::post(const std::string& body) {
    if (!posts_ || !posts_->is_open()) posts_ = std::make_unique<raw_socket>(port_, address_.c_str());
    http_reply reply = http_exchange(*posts_, post_request(session_uri_, body));
    if (reply.header("Connection") == "close") posts_.reset();
    return reply;
}

std::string sse_client::call(const std::string& body) {
    post(body);
    return next_message();
}

std::string sse_client::call_tool(int id, const std::string& name, const std::string& arguments) {
    return call(R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":"tools/call","params":{"name":")" +
                name + R"(","arguments":)" + arguments + "}}");
}

void sse_client::shake_hands() {
    call(R"({"jsonrpc":"2.0","id":"hands","method":"initialize","params":{"protocolVersion":"2025-11-25",)"
         R"("capabilities":{},"clientInfo":{"name":"sse_client","version":"1"}}})");
    post(R"({"jsonrpc":"2.0","method":"notifications/initialized"})");
    // The notification is not answered: wait until the server has taken it in.
    for (int tries = 0;
         call(R"({"jsonrpc":"2.0","id":"ready","method":"tools/list"})").find("-32600") != std::string::npos; ++tries) {
        if (tries == 1000) throw std::runtime_error("the session does not get ready");
    }
}

}  // namespace mcp
