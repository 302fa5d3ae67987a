#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "mcp/connection.h"
#include "mcp/connection_workers.h"

namespace mcp {

// Accepts connections at one port and has each served on a worker. Goes on when the system is out of descriptors or
// memory, and cuts all connections when it stops, also those of clients that don't read.
class connection_server {
 public:
    // Serves one connection to its end, on a worker. The connection is closed behind it. What it throws is logged.
    using server = std::function<void(const std::shared_ptr<connection>& served)>;

    connection_server(const connection_limits& limits, const connection_timings& timings, server serve_one);
    ~connection_server();
    connection_server(const connection_server&) = delete;
    connection_server& operator=(const connection_server&) = delete;

    // Binds to `host` and `port`, where 0 takes any free port. Returns the port, or 0 if that failed. Others of the
    // same user may bind the same port, and a socket of IPv6 takes IPv4 as well.
    int bind(const std::string& host, int port);

    // Serves the bound port until stop(), and returns when the last connection is closed. False if the socket failed.
    bool serve();

    // Any thread. Also keeps serve() from starting.
    void stop();

    // True while connections should make room for others. Any thread.
    bool is_crowded() { return workers_.is_crowded(); }

 private:
    void serve_connection(int socket) noexcept;
    bool enter(const std::shared_ptr<connection>& opened);

    const connection_timings timings_;
    const server serve_one_;
    int socket_ = -1;

    std::atomic<bool> stopping_{false};
    std::mutex mutex_;  // all below, and what stopping_ means for them
    std::set<std::shared_ptr<connection>> connections_;
    connection_workers workers_;  // its own lock; the last, since it uses the others
};

}  // namespace mcp
