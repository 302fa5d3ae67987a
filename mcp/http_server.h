// HTTP for the server: which requests are answered, and by whom.
//
// A connection_server accepts connections and has each served on a worker of its own. There a head_reader reads the
// head of a request; it is answered before anything of its body is read, unless it is the POST that the body is for.
// The answer goes straight onto the connection, as one text or, for a stream, chunk by chunk.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "mcp/connection.h"
#include "mcp/connection_workers.h"
#include "mcp/http_message.h"

namespace mcp {

using http_handler = std::function<http_answer(const http_request& request)>;
// May take from the request and its body what it needs.
using http_post_handler = std::function<http_answer(http_request& request, http_body& body)>;
// `cut_connection` ends the request's connection at once, from any thread, also later.
using http_get_handler = std::function<http_answer(const http_request& request, std::function<void()> cut_connection)>;

// What it answers goes out in place of all else; with nothing the request goes its way.
using http_gate = std::function<std::optional<http_answer>(const http_request& request)>;

struct http_limits {
    connection_limits connections;
    connection_timings timings;
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

    // All to be set before serve(), each once. The gate is asked of each request, whatever its path and method.
    // `on_options` is for every path, on_get() for HEAD as well. All other requests are answered with 404, and a GET
    // that announces a body with 400.
    void set_gate(http_gate gate);
    void on_options(http_handler handler);
    void on_post(const std::string& path, http_post_handler handler);
    void on_get(const std::string& path, http_get_handler handler);

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
