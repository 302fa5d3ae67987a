#include "mcp/http_server.h"

#include <httplib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "diagnostics/mcp_logger.h"
#include "mcp/body_budget.h"
#include "mcp/connection.h"
#include "mcp/connection_workers.h"

// Without these the library raises SIGPIPE in the host application, and makes connections wait when many come
// at once. They are set where the library's header is found, so that all who include it agree.
static_assert((CPPHTTPLIB_SEND_FLAGS & MSG_NOSIGNAL) != 0 && CPPHTTPLIB_LISTEN_BACKLOG >= 128);

namespace mcp {
namespace {

constexpr std::chrono::milliseconds kPauseAfterFailedAccept{10};

// Per request, so that many small bodies count as well.
constexpr std::size_t kRequestOverheadBytes = 1024;

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

// The connection that this worker serves.
thread_local std::shared_ptr<connection> served_connection;

// A connection as the library sees it. Reading and writing wait by themselves, so no call asks whether they may.
class connection_stream final : public httplib::Stream {
 public:
    explicit connection_stream(connection& served) : connection_(served) {}

    bool is_readable() const override { return connection_.has_buffered(); }
    bool wait_readable() const override { return true; }
    bool wait_writable() const override { return true; }
    bool is_peer_alive() const override { return connection_.peer_is_alive(); }
    ssize_t read(char* bytes, size_t size) override { return connection_.read(bytes, size); }
    ssize_t write(const char* bytes, size_t size) override { return connection_.write(bytes, size); }
    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        httplib::detail::get_remote_ip_and_port(socket(), ip, port);
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override {
        httplib::detail::get_local_ip_and_port(socket(), ip, port);
    }
    socket_t socket() const override { return connection_.socket(); }
    time_t duration() const override { return 0; }

 private:
    connection& connection_;
};

bool is_lasting_accept_error(int error) {
    return error == EBADF || error == EINVAL || error == ENOTSOCK || error == EOPNOTSUPP || error == EFAULT;
}

// The library's server with accept and connection loops of its own. The library's loops give up for good when the
// system is out of descriptors or memory, look a hundred times a second whether a silent connection is to end,
// and let streams that come at the same time wait for each other; nor can a stop cut off who doesn't read.
class connection_server final : public httplib::Server {
 public:
    // Serves the bound socket until stop_serving(), and returns when the last connection is closed. False if
    // the socket failed.
    bool serve() {
        bool failed = false;
        while (!stopping_ && !failed) {
            const int socket = accept4(svr_sock_, nullptr, nullptr, SOCK_CLOEXEC);
            if (socket >= 0) {
                if (!workers_.enqueue([this, socket] { serve_connection(socket); })) close(socket);
            } else if (!stopping_) {
                failed = is_lasting_accept_error(errno);
                if (errno != EINTR) std::this_thread::sleep_for(kPauseAfterFailedAccept);
            }
        }
        stop_serving();
        workers_.shutdown();
        return !failed;
    }

    // Any thread. Also keeps serve() from starting.
    void stop_serving() {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        if (svr_sock_ != INVALID_SOCKET) shutdown(svr_sock_, SHUT_RDWR);
        for (const auto& open : connections_) open->cut();
    }

    // Any thread.
    bool is_crowded() { return workers_.is_crowded(); }

    ~connection_server() override {
        if (svr_sock_ != INVALID_SOCKET) close(svr_sock_);
    }

 private:
    void serve_connection(int socket) noexcept {
        try {
            served_connection = std::make_shared<connection>(socket);
            served_connection->set_time_limits(read_timeout_sec_, write_timeout_sec_);
            if (enter()) serve_requests(*served_connection);
        } catch (const std::exception& e) {
            log_error("Exception while serving a connection: ", e.what());
        } catch (...) {
            log_error("Unknown exception while serving a connection");
        }
        if (served_connection) {
            leave();
        } else {
            close(socket);
        }
    }

    bool enter() {
        const std::lock_guard lock(mutex_);
        if (!stopping_) connections_.insert(served_connection);
        return !stopping_;
    }

    void leave() {
        {
            const std::lock_guard lock(mutex_);
            connections_.erase(served_connection);
        }
        served_connection->close();
        served_connection.reset();
    }

    void serve_requests(connection& served) {
        connection_stream stream(served);
        std::string remote_address;
        std::string local_address;
        int remote_port = 0;
        int local_port = 0;
        stream.get_remote_ip_and_port(remote_address, remote_port);
        stream.get_local_ip_and_port(local_address, local_port);
        bool closed = false;
        for (std::size_t left = keep_alive_max_count_; left > 0 && !stopping_; --left) {
            const bool goes_on = process_request(stream, remote_address, remote_port, local_address, local_port,
                                                 left == 1, closed, nullptr);
            // The library itself goes on after an error, and would take what is left of a request that it could not
            // read for the next one: a web page can write such a one, headers and all, into a body.
            if (!goes_on || closed || served.is_last_answered()) return;
        }
    }

    std::atomic<bool> stopping_{false};
    std::mutex mutex_;  // all below, and what stopping_ means for them
    std::set<std::shared_ptr<connection>> connections_;
    connection_workers workers_{default_connection_limits()};  // its own lock; the last, since it uses the others
};

// These go out first and in this order, each once, though the library keeps headers unordered and adds a second
// `Connection` where it means to close.
constexpr std::array kOrderedHeaders = {
    "Content-Type",
    "Cache-Control",
    "Connection",
    "Access-Control-Allow-Origin",
    "Access-Control-Allow-Methods",
    "Access-Control-Allow-Headers",
};

void append_header(std::string& text, const std::string& name, const std::string& value) {
    text.append(name).append(": ").append(value).append("\r\n");
}

ssize_t write_headers(httplib::Stream& stream, httplib::Headers& headers, bool is_crowded) {
    // So that those who wait need not do so until a connection has idled for too long. What has come already is
    // answered.
    if (is_crowded && headers.find("Connection") == headers.end() && !served_connection->has_buffered()) {
        headers.erase("Keep-Alive");
        headers.emplace("Connection", "close");
    }
    std::string text;
    for (const std::string name : kOrderedHeaders) {
        const auto [first, last] = headers.equal_range(name);
        if (first == last) continue;
        const auto own = std::find_if(first, last, [](const auto& header) { return header.second != "close"; });
        const std::string& value = own != last ? own->second : first->second;
        append_header(text, name, value);
        if (name == "Connection" && value == "close") served_connection->set_last_answered();
    }
    for (const auto& [name, value] : headers) {
        if (std::find(kOrderedHeaders.begin(), kOrderedHeaders.end(), name) == kOrderedHeaders.end()) {
            append_header(text, name, value);
        }
    }
    text += "\r\n";
    return stream.write(text);
}

class stream_sink final : public frame_sink {
 public:
    stream_sink(httplib::DataSink& chunks, const connection& on) : chunks_(chunks), connection_(on) {}

    bool write(std::string_view bytes) override { return chunks_.write(bytes.data(), bytes.size()); }
    bool has_room() override { return connection_.has_room(); }

 private:
    httplib::DataSink& chunks_;
    const connection& connection_;
};

header_map lower_case_headers(const httplib::Request& from) {
    header_map headers;
    for (const auto& [name, value] : from.headers) {
        std::string lower = name;
        for (char& c : lower) {
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        }
        const auto [header, is_first] = headers.emplace(std::move(lower), value);
        if (!is_first) header->second += ", " + value;
    }
    return headers;
}

http_request to_request(const httplib::Request& from) {
    http_request request;
    request.remote_address = from.remote_addr;
    request.remote_port = from.remote_port;
    request.path = from.path;
    request.session_id = from.get_param_value("session_id");
    request.head_only = from.method == "HEAD";
    request.headers = [&from] { return lower_case_headers(from); };
    return request;
}

void fill_response(http_answer answer, httplib::Response& response) {
    response.status = answer.status;
    for (const http_header& header : answer.headers) response.set_header(header.name, header.value);
    if (answer.stream) {
        const auto source = std::make_shared<stream_source>(std::move(answer.stream));
        response.set_chunked_content_provider(answer.content_type,
                                              [source, on = served_connection](std::size_t, httplib::DataSink& chunks) {
                                                  stream_sink sink(chunks, *on);
                                                  return (*source)(sink);
                                              });
    } else {
        response.set_header("Content-Type", answer.content_type);
        response.body = std::move(answer.body);
    }
}

}  // namespace

class http_server::implementation {
 public:
    explicit implementation(const http_limits& limits)
        : budget_(std::make_shared<body_budget>(limits.all_bodies_bytes)) {
        server.set_write_timeout(limits.write_timeout.count(), 0);
        server.set_payload_max_length(limits.body_bytes);
        server.set_header_writer([this](httplib::Stream& stream, httplib::Headers& headers) {
            return write_headers(stream, headers, server.is_crowded());
        });
        server.set_pre_routing_handler([this](const httplib::Request& from, httplib::Response& response) {
            return answer_before_routing(from, response) ? httplib::Server::HandlerResponse::Handled
                                                         : httplib::Server::HandlerResponse::Unhandled;
        });
        server.set_error_handler([](const httplib::Request&, httplib::Response& response) {
            if (response.status != 413) return httplib::Server::HandlerResponse::Unhandled;
            response.body = R"({"error":"Payload too large"})";  // the library has emptied it
            return httplib::Server::HandlerResponse::Handled;
        });
    }

    // Reads the body into `request`, or sets its refusal.
    void read_body(const httplib::Request& from, const httplib::ContentReader& reader, httplib::Response& response,
                   http_request& request) {
        const auto share = std::make_shared<body_budget::share>(budget_);
        bool has_room = share->take(kRequestOverheadBytes);
        request.budget_share = share;
        if (!has_room) {
            request.refusal = 503;
        } else if (from.is_multipart_form_data()) {
            request.refusal = 400;
        } else if (!reader([&](const char* bytes, std::size_t count) {
                       has_room = share->take(count);
                       if (has_room) request.body.append(bytes, count);
                       return has_room;
                   })) {
            request.refusal = has_room ? response.status : 503;
        }
    }

    http_gate gate;
    http_handler on_options;
    connection_server server;

 private:
    bool answer_before_routing(const httplib::Request& from, httplib::Response& response) const {
        if (gate) {
            if (auto answer = gate(to_request(from))) {
                fill_response(std::move(*answer), response);
                return true;
            }
        }
        // Not as a route of ".*": the library would match that by recursion, as deep as the path is long.
        if (from.method != "OPTIONS" || !on_options) return false;
        http_request request = to_request(from);
        fill_response(on_options(request), response);
        return true;
    }

    const std::shared_ptr<body_budget> budget_;
};

http_server::http_server(const http_limits& limits) {
    const kept_sigpipe kept;
    implementation_ = std::make_unique<implementation>(limits);
}

http_server::~http_server() = default;

void http_server::set_gate(http_gate gate) {
    implementation_->gate = std::move(gate);
}

void http_server::on_options(http_handler handler) {
    implementation_->on_options = std::move(handler);
}

void http_server::on_post(const std::string& path, http_handler handler) {
    implementation_->server.Post(
        path, [this, handler = std::move(handler)](const httplib::Request& from, httplib::Response& response,
                                                   const httplib::ContentReader& reader) {
            http_request request = to_request(from);
            implementation_->read_body(from, reader, response, request);
            fill_response(handler(request), response);
        });
}

void http_server::on_get(const std::string& path, http_handler handler) {
    implementation_->server.Get(
        path, [handler = std::move(handler)](const httplib::Request& from, httplib::Response& response) {
            http_request request = to_request(from);
            request.cut_connection = [connection = served_connection] { connection->cut(); };
            fill_response(handler(request), response);
        });
}

int http_server::bind(const std::string& host, int port) {
    httplib::Server& server = implementation_->server;
    if (port == 0) return std::max(0, server.bind_to_any_port(host));
    return server.bind_to_port(host, port) ? port : 0;
}

bool http_server::serve() {
    return implementation_->server.serve();
}

void http_server::stop() {
    implementation_->server.stop_serving();
}

}  // namespace mcp
