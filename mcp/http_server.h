// HTTP for the server. The implementation is the one file that sees cpp-httplib.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "mcp/event_dispatcher.h"

namespace mcp {

// Request headers under their lower-cased names. Several of one name are joined by ", ".
using header_map = std::map<std::string, std::string>;

struct http_header {
    const char* name;
    const char* value;
};

struct http_request {
    std::string remote_address;
    int remote_port = 0;
    std::string path;        // without the query
    std::string session_id;  // the query key of that name; empty if absent
    std::string body;
    bool head_only = false;
    int refusal = 0;                       // the status to answer with, where the body could not be taken; else 0
    std::function<header_map()> headers;   // only while the handler runs
    std::function<void()> cut_connection;  // of a GET: ends it at once, from any thread, also later
    std::shared_ptr<void> budget_share;    // to be kept until the request is done with
};

// Called again and again to write to an open stream, for as long as it returns true. It is destroyed when the
// stream has ended, for whatever reason.
using stream_source = std::function<bool(frame_sink& sink)>;

struct http_answer {
    int status = 200;
    std::string content_type;
    std::span<const http_header> headers;  // go out in this order, behind the content type
    std::string body = {};
    stream_source stream = {};  // set if the body is a stream
};

using http_handler = std::function<http_answer(http_request& request)>;

// What it answers goes out in place of all else; with nothing the request goes its way.
using http_gate = std::function<std::optional<http_answer>(const http_request& request)>;

struct http_limits {
    std::chrono::seconds write_timeout;
    std::size_t body_bytes;        // of one request; a larger one is refused with 413
    std::size_t all_bodies_bytes;  // of all requests in hand; those beyond are refused with 503
};

// Handlers run on workers of the server, one connection each; an open stream holds its worker. What a handler
// throws is answered with 500. Never changes how the process takes SIGPIPE.
class http_server {
 public:
    explicit http_server(const http_limits& limits);
    ~http_server();
    http_server(const http_server&) = delete;
    http_server& operator=(const http_server&) = delete;

    // All to be set before serve(). The gate is asked of each request, whatever its path and method, before its body
    // is read. `on_options` is for every path.
    void set_gate(http_gate gate);
    void on_options(http_handler handler);
    void on_post(const std::string& path, http_handler handler);
    void on_get(const std::string& path, http_handler handler);

    // Binds to `host` and `port`, where 0 takes any free port. Returns the port, or 0 if that failed.
    int bind(const std::string& host, int port);

    // Serves on the calling thread until stop(), and returns when the last handler has. False if serving failed.
    bool serve();

    // Ends serve(), or keeps it from starting, and cuts all connections.
    void stop();

 private:
    class implementation;
    std::unique_ptr<implementation> implementation_;
};

}  // namespace mcp
