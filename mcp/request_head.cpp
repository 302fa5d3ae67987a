#include "mcp/request_head.h"

#include <httplib.h>

#include <csignal>
#include <mutex>
#include <utility>

namespace mcp {
namespace {

// The library's server ignores SIGPIPE for the whole process when it is constructed. A guest leaves signals as
// the host has set them.
class kept_sigpipe {
 public:
    kept_sigpipe() { sigaction(SIGPIPE, nullptr, &before_); }
    ~kept_sigpipe() { sigaction(SIGPIPE, &before_, nullptr); }
    kept_sigpipe(const kept_sigpipe&) = delete;
    kept_sigpipe& operator=(const kept_sigpipe&) = delete;

 private:
    static std::mutex& one_at_a_time() {
        static std::mutex& the = *new std::mutex;
        return the;
    }

    const std::lock_guard<std::mutex> lock_{one_at_a_time()};
    struct sigaction before_ {};
};

// Of a head, which is not counted towards the memory for requests. The library limits its parts, but to far more than
// any client sends: many heads that are never finished would take hundreds of megabytes.
constexpr std::size_t kHeadBytes = 64u << 10;

// A connection as the library sees it, up to the end of a head: from then on nothing is read for it, and what it
// writes is dropped.
class head_stream final : public httplib::Stream {
 public:
    explicit head_stream(connection& from) : connection_(from) {}

    void end() { is_ended_ = true; }

    ssize_t read(char* bytes, size_t size) override {
        if (is_ended_) return 0;
        if (size > left_) return -1;
        const ssize_t count = connection_.read(bytes, size);
        if (count > 0) left_ -= static_cast<std::size_t>(count);
        return count;
    }
    ssize_t write(const char* bytes, size_t size) override {
        if (!is_ended_ && !connection_.write({{bytes, size}})) return -1;
        return static_cast<ssize_t>(size);
    }
    // Reading and writing wait by themselves, so no call has to ask whether they may.
    bool is_readable() const override { return !is_ended_ && connection_.has_buffered(); }
    bool wait_readable() const override { return true; }
    bool wait_writable() const override { return true; }
    bool is_peer_alive() const override { return true; }
    // Only for what the library does behind the head.
    void get_remote_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
    void get_local_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
    socket_t socket() const override { return INVALID_SOCKET; }
    time_t duration() const override { return 0; }

 private:
    connection& connection_;
    std::size_t left_ = kHeadBytes;
    bool is_ended_ = false;
};

header_map lower_case_headers(const httplib::Headers& from) {
    header_map headers;
    for (const auto& [name, value] : from) {
        std::string lower = name;
        for (char& c : lower) {
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        }
        const auto [header, is_first] = headers.emplace(std::move(lower), value);
        if (!is_first) header->second += ", " + value;
    }
    return headers;
}

http_request take_request(httplib::Request& parsed, const connection& from) {
    return {.remote_address = from.remote_address(),
            .remote_port = from.remote_port(),
            .method = parsed.method,
            .version = parsed.version,
            .path = parsed.path,
            .session_id = parsed.get_param_value("session_id"),
            .headers = lower_case_headers(std::exchange(parsed.headers, {}))};
}

}  // namespace

// What is used of the library's internals:
// - Server::process_request, which is protected. The public way to it is the library's own loops over sockets. They
//   give up for good when the system is out of descriptors or memory, look a hundred times a second whether a silent
//   connection is to end, let streams that come at the same time wait for each other, and can't cut off who doesn't
//   read.
// - Its parameter `setup_request`, the one place that is reached after a head was read and found good, and before
//   anything is done about it. Bodies and answers are ours: the library keeps bodies that nobody asks for, goes on
//   with the rest of a request that it could not read as if that were the next one, and knows one thread a stream.
// - Stream, its view of a connection, which has to be derived for that.
class head_reader::parser final : public httplib::Server {
 public:
    parser() {
        // It ends what process_request() does about the request behind `setup_request`.
        set_pre_routing_handler([](const httplib::Request&, httplib::Response&) { return HandlerResponse::Handled; });
    }

    std::optional<http_request> read(connection& from) {
        std::optional<http_request> taken;
        head_stream stream(from);
        bool closed = false;
        process_request(stream, from.remote_address(), from.remote_port(), {}, 0, true, closed,
                        [&](httplib::Request& parsed) {
                            stream.end();
                            taken = take_request(parsed, from);
                        });
        return taken;
    }
};

head_reader::head_reader() {
    const kept_sigpipe kept;
    parser_ = std::make_unique<parser>();
}

head_reader::~head_reader() = default;

std::optional<http_request> head_reader::read(connection& from) {
    return parser_->read(from);
}

}  // namespace mcp
