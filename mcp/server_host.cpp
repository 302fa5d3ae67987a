#include "mcp/server_host.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <string_view>
#include <utility>

#include "diagnostics/mcp_logger.h"
#include "diagnostics/telemetry.h"

namespace orvanic_xr {
namespace {

constexpr std::int32_t kWriteTimeoutSeconds = 30;
// Far more than binding takes, and not long for an application that waits for its instance.
constexpr std::chrono::milliseconds kBindTime{500};

// What telemetry wants to know of a client.
void TellTelemetry(const mcp::json& client_info, const mcp::header_map& headers) {
    if (client_info.is_object() && client_info.contains("name") && client_info["name"].is_string()) {
        const std::string name = client_info["name"].get<std::string>();
        if (!name.empty() && name != "OrvanicXR_MCP_Proxy") Telemetry::instance().set_client_name(name);
    }
    if (headers.contains("x-orvanicxr-proxy")) Telemetry::instance().set_proxy_used(true);
}

bool AskedForLocalOnly() {
    const char* value = std::getenv("ORVANICXR_LOCAL_ONLY");
    const std::string_view asked = value ? value : "";
    if (asked == "1") {
        mcp::log_info("ORVANICXR_LOCAL_ONLY is 1: serving this machine only");
    } else if (!asked.empty() && asked != "0") {
        mcp::log_warning("ORVANICXR_LOCAL_ONLY is set, but not to 1: serving everybody");
    }
    return asked == "1";
}

}  // namespace

McpServerHost::McpServerHost(mcp::server_timings timings) : timings_(timings) {}

McpServerHost& McpServerHost::instance() {
    static McpServerHost& the = *new McpServerHost;  // never destroyed: at exit its threads still run
    return the;
}

bool McpServerHost::start(int port) {
    const std::lock_guard lock(mutex_);
    if (ipv4_.running || ipv6_.running) {
        mcp::log_warning("MCP server singleton already started");
        return true;
    }
    const bool local_only = AskedForLocalOnly();
    StartLocked(ipv4_, port, local_only);
    // The socket of :: takes IPv4 as well. Were it bound first, a client that comes in between would open its stream
    // there, and its calls would reach the other server, which doesn't know it.
    if (ipv4_.server) ipv4_.server->wait_until_listening(kBindTime);
    StartLocked(ipv6_, port, local_only);
    if (!ipv4_.running && !ipv6_.running) {
        mcp::log_error("Failed to start any MCP server");
        return false;
    }
    mcp::log_info("MCP server singleton started on port ", port);
    return true;
}

void McpServerHost::StartLocked(Listener& listener, int port, bool local_only) {
    listener.config = std::make_unique<mcp::server_config>();
    listener.config->host = listener.host;
    listener.config->port = port;
    listener.config->write_timeout_seconds = kWriteTimeoutSeconds;
    listener.config->local_only = local_only;
    listener.config->timings = timings_;
    listener.server = std::make_shared<mcp::server>(*listener.config);
    listener.server->set_server_info("OrvanicXR_MCP_Server", "1.0.0");
    listener.server->set_initialize_callback(
        [](const std::string& /*session_id*/, const mcp::json& client_info, const mcp::header_map& headers) {
            TellTelemetry(client_info, headers);
        });
    if (client_connected_callback_) listener.server->set_client_connected_callback(client_connected_callback_);
    listener.server->set_capabilities({{"tools", mcp::json::object()}});
    if (listener.server->start(false)) {
        listener.running = true;
        mcp::log_info("MCP server ", listener.family, " started successfully at ", listener.shown_host, ":", port);
    } else {
        mcp::log_warning("Failed to start MCP server ", listener.family);
        listener.server.reset();
        listener.config.reset();
    }
}

void McpServerHost::stop() {
    // Destroyed without the mutex, which waits for running tools: one of them may be about to call the host.
    std::shared_ptr<mcp::server> stopped_ipv4;
    std::shared_ptr<mcp::server> stopped_ipv6;
    const std::lock_guard lock(mutex_);
    if (!ipv4_.running && !ipv6_.running) return;
    stopped_ipv4 = StopLocked(ipv4_);
    stopped_ipv6 = StopLocked(ipv6_);
}

std::shared_ptr<mcp::server> McpServerHost::StopLocked(Listener& listener) {
    if (!listener.server) return nullptr;
    try {
        listener.server->stop();
        mcp::log_info("MCP server ", listener.family, " stopped");
    } catch (const std::exception& e) {
        mcp::log_error("Exception stopping MCP server ", listener.family, ": ", e.what());
    }
    listener.config.reset();
    listener.running = false;
    return std::move(listener.server);
}

void McpServerHost::register_tool(const mcp::tool& tool, const mcp::tool_handler& handler) {
    const std::lock_guard lock(mutex_);
    if (!ipv4_.server && !ipv6_.server) {
        mcp::log_warning("Cannot register tool: no server initialized");
        return;
    }
    if (ipv4_.server) ipv4_.server->register_tool(tool, handler);
    if (ipv6_.server) ipv6_.server->register_tool(tool, handler);
    mcp::log_info("Tool registered: ", tool.name);
    mcp::log_info("Tools list changed - clients should refresh via tools/list");
}

void McpServerHost::set_client_connected_callback(mcp::server::client_connected_callback callback) {
    const std::lock_guard lock(mutex_);
    client_connected_callback_ = std::move(callback);
}

std::shared_ptr<mcp::server> McpServerHost::ipv4_server() const {
    const std::lock_guard lock(mutex_);
    return ipv4_.server;
}

std::shared_ptr<mcp::server> McpServerHost::ipv6_server() const {
    const std::lock_guard lock(mutex_);
    return ipv6_.server;
}

}  // namespace orvanic_xr
