// A small MCP client over raw sockets. Every wait is bounded; what doesn't come in time throws.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace mcp {

inline constexpr std::chrono::milliseconds kClientPatience{30000};

class raw_socket {
 public:
    explicit raw_socket(int port, const char* address = "127.0.0.1");
    ~raw_socket();
    raw_socket(raw_socket&& other) noexcept;

    void send(std::string_view bytes);
    // Everything up to and including `end`.
    std::string read_until(std::string_view end, std::chrono::milliseconds patience = kClientPatience);
    std::string read_bytes(std::size_t count);
    // Everything up to the end of the connection. A reset is no end.
    std::string read_to_end();
    // Waits for the peer to end the connection, over whatever still comes.
    bool ends_within(std::chrono::milliseconds patience);
    // False once the peer has ended the connection and all it sent was read.
    bool is_open() const;
    // The peer learns it by a reset, as when a process is killed with unread data.
    void vanish();

 private:
    bool receive(std::chrono::steady_clock::time_point deadline);

    int socket_ = -1;
    std::string received_;
};

struct http_reply {
    int status = 0;
    std::string head;  // the status line and the headers, without the empty line behind them
    std::string body;

    // The value of a header; empty if it is not there.
    std::string header(const std::string& name) const;
};

http_reply http_exchange(raw_socket& socket, std::string_view request);
std::string post_request(const std::string& target, const std::string& body);

struct sse_event {
    std::string type;  // "comment" for a comment, whose text is the data
    std::string data;
};

class sse_client {
 public:
    // Opens a stream and reads its endpoint event.
    explicit sse_client(int port, const char* address = "127.0.0.1");

    const std::string& head() const { return head_; }
    const std::string& session_uri() const { return session_uri_; }
    std::string session_id() const { return session_uri_.substr(session_uri_.find('=') + 1); }

    sse_event next_event(std::chrono::milliseconds patience = kClientPatience);
    // The data of the next message event.
    std::string next_message();

    // On a connection of its own, which is kept open.
    http_reply post(const std::string& body);
    // Posts a request and gives the next message.
    std::string call(const std::string& body);
    std::string call_tool(int id, const std::string& name, const std::string& arguments = "{}");
    void shake_hands();

    raw_socket& stream() { return stream_; }

 private:
    const int port_;
    const std::string address_;
    raw_socket stream_;
    std::unique_ptr<raw_socket> posts_;
    std::string head_;
    std::string unparsed_;
    std::string session_uri_;
};

}  // namespace mcp
