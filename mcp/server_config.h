// Settings of one server.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

#include "mcp/connection_workers.h"

namespace mcp {

// Every pause and limit of a server. The defaults are what clients rely on; tests shorten them.
struct server_timings {
    std::chrono::milliseconds endpoint_delay{500};      // from the GET to the endpoint frame
    std::chrono::milliseconds heartbeat_pause{2000};    // between two heartbeats, plus a random part ...
    std::chrono::milliseconds heartbeat_spread{500};    // ... of less than this
    std::chrono::milliseconds keepalive_after{10000};   // a stream silent for so long gets a comment
    std::chrono::milliseconds sweep_interval{60000};    // between two looks for inactive sessions
    std::chrono::milliseconds inactive_after{3600000};  // a session idle for longer is closed
    std::chrono::milliseconds stop_pause{300};          // for streams to notice that the server stops
    std::chrono::milliseconds join_budget{2000};        // for the session threads to end, all together ...
    std::chrono::milliseconds join_patience{100};       // ... and each of them
    std::chrono::milliseconds silence{5000};            // a connection silent for so long is ended ...
    std::chrono::milliseconds request_time{60000};      // ... and one whose request takes longer to come
};

struct server_config {
    std::string host = "localhost";
    int port = 8080;  // 0 takes any free port; server::port() tells which
    std::string name = "MCP Server";
    std::string version = "0.0.1";
    std::string sse_endpoint = "/sse";
    std::string msg_endpoint = "/message";
    std::uint32_t threadpool_size = std::thread::hardware_concurrency();
    std::int32_t write_timeout_seconds = 5;
    std::size_t body_limit = 16u << 20;            // bytes of one request; a larger one gets 413
    std::size_t all_bodies_limit = 64u << 20;      // bytes of all requests in hand; those beyond get 503
    std::size_t untaken_answer_limit = 64u << 20;  // bytes a session may leave unread before its stream is closed
    std::size_t all_untaken_limit = 256u << 20;    // likewise all sessions together, of those that lag
    bool local_only = false;                       // 403 for whoever is not this machine; see local_only.h
    connection_limits connections = default_connection_limits();
    server_timings timings;
};

}  // namespace mcp
