// The two servers of the process: one on 0.0.0.0 and one on ::, both on one port.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "mcp/server.h"

namespace orvanic_xr {

// IPv4 and IPv6 alike. Fixed: clients find the layer by it.
inline constexpr int kMcpServerPort = 8720;

// Any thread. The mutex is held while servers are started and stopped, but not while stop() waits for tools that
// still run.
class McpServerHost {
 public:
    explicit McpServerHost(mcp::server_timings timings = {});
    McpServerHost(const McpServerHost&) = delete;
    McpServerHost& operator=(const McpServerHost&) = delete;

    static McpServerHost& instance();

    // Starts both servers. True if one of them counts as started, which means that its threads run: a port that
    // is taken shows later, in the log. Also true, with a warning, when they run already. With port 0 each
    // server takes a free port of its own. Asks ORVANICXR_LOCAL_ONLY whether to serve this machine only.
    bool start(int port);

    // Stops and destroys both servers; waits for tool calls that still run.
    void stop();

    // Adds `tool` to every server that exists, or replaces the one of that name.
    void register_tool(const mcp::tool& tool, const mcp::tool_handler& handler);

    // Told the name and version of each client that shook hands. Counts for servers started from now on.
    void set_client_connected_callback(mcp::server::client_connected_callback callback);

    // Null if that server is not there. It is there, though it serves nobody, when its port was taken.
    std::shared_ptr<mcp::server> ipv4_server() const;
    std::shared_ptr<mcp::server> ipv6_server() const;

 private:
    // One address family: how it is called in the log, what is bound, and its server.
    struct Listener {
        const char* family;
        const char* host;
        const char* shown_host;
        std::shared_ptr<mcp::server> server = nullptr;
        std::unique_ptr<mcp::server_config> config = nullptr;
        bool running = false;
    };

    void StartLocked(Listener& listener, int port, bool local_only);
    // Gives the stopped server, to be destroyed.
    static std::shared_ptr<mcp::server> StopLocked(Listener& listener);

    const mcp::server_timings timings_;

    mutable std::mutex mutex_;  // all below
    Listener ipv4_{"IPv4", "0.0.0.0", "0.0.0.0"};
    Listener ipv6_{"IPv6", "::", "[::]"};
    mcp::server::client_connected_callback client_connected_callback_;
};

}  // namespace orvanic_xr
