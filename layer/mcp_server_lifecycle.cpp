#include "layer/mcp_server_lifecycle.h"

#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "context/context_manager.h"
#include "diagnostics/logger.h"
#include "diagnostics/telemetry.h"
#include "mcp/server_host.h"
#include "tools/builtin_tools.h"
#include "tools/tool_registry.h"
#include "tools/tool_registry_lifetime.h"

namespace orvanic_xr {
namespace {

std::atomic<int> server_port = kMcpServerPort;

// The current registries, of which InstanceState holds the chain's address. All but the instance() is under
// ToolRegistryLifetime, so that nobody registers through a chain that goes.
class OwnedToolRegistries {
 public:
    static OwnedToolRegistries& instance() {
        static OwnedToolRegistries& registries = *new OwnedToolRegistries;
        return registries;
    }

    // The in-process registry first, then the server's, if there is one.
    void Replace(std::unique_ptr<HttpToolRegistry> http) {
        std::vector<IToolRegistry*> list = {&InProcessToolRegistry::instance()};
        if (http) list.push_back(http.get());
        auto chained = std::make_unique<ChainedToolRegistry>(std::move(list));
        std::lock_guard lifetime(ToolRegistryLifetime());
        ContextManager::instance().setToolRegistry(chained.get());
        chained_ = std::move(chained);
        // On purpose: without a server the one from before stays until the instance goes.
        if (http) http_ = std::move(http);
    }

    void RegisterBuiltinTools() {
        std::shared_lock lifetime(ToolRegistryLifetime());
        if (chained_) register_builtin_tools(*chained_);
    }

    void Destroy() {
        std::lock_guard lifetime(ToolRegistryLifetime());
        ContextManager::instance().setToolRegistry(nullptr);
        chained_.reset();
        http_.reset();
    }

 private:
    std::unique_ptr<HttpToolRegistry> http_;
    std::unique_ptr<ChainedToolRegistry> chained_;
};

void TellClientConnected(const std::string& name, const std::string& version) {
    Telemetry::instance().client_connected(name, version);
}

void TellServerStarted(const McpServerHost& host, int port) {
    const auto ipv4 = host.ipv4_server();
    const auto ipv6 = host.ipv6_server();
    const auto& first = ipv4 ? ipv4 : ipv6;
    Telemetry& telemetry = Telemetry::instance();
    telemetry.server_started(port, first ? first->get_tools().size() : 0, ipv4 != nullptr, ipv6 != nullptr);
    if (ipv4 && !ipv6) telemetry.error("mcp_server", "bind_failed_ipv6");
    if (ipv6 && !ipv4) telemetry.error("mcp_server", "bind_failed_ipv4");
}

void Initialize() {
    LogInfo("Initializing Orvanic MCP Server...");
    McpServerHost& host = McpServerHost::instance();
    host.set_client_connected_callback(TellClientConnected);
    const int port = server_port;
    const bool started = host.start(port);
    std::unique_ptr<HttpToolRegistry> http;
    if (started) {
        LogInfo("MCP Server started successfully on port ", port, " (IPv4 and IPv6)");
        http = std::make_unique<HttpToolRegistry>(host);
    } else {
        LogError("Failed to start MCP Server");
        Telemetry::instance().error("mcp_server", "start_failed");
    }
    OwnedToolRegistries::instance().Replace(std::move(http));
    OwnedToolRegistries::instance().RegisterBuiltinTools();
    if (started) TellServerStarted(host, port);
}

void Destroy() {
    LogInfo("Destroying Orvanic MCP Server...");
    OwnedToolRegistries::instance().Destroy();
    InProcessToolRegistry::instance().clear();
    Telemetry::instance().server_stopped();
    McpServerHost::instance().stop();
    LogInfo("MCP Server stopped successfully");
}

}  // namespace

void InitializeOrvanicMcpServer() noexcept {
    try {
        Initialize();
        return;
    } catch (const std::exception& error) {
        LogError("Exception during MCP Server initialization: ", error.what());
    } catch (...) {
        LogError("Unknown exception during MCP Server initialization");
    }
    Telemetry::instance().error("mcp_server", "init_exception");
}

void DestroyOrvanicMcpServer() noexcept {
    try {
        Destroy();
    } catch (const std::exception& error) {
        LogError("Exception during MCP Server destruction: ", error.what());
    } catch (...) {
        LogError("Unknown exception during MCP Server destruction");
    }
}

ScopedMcpServerPort::ScopedMcpServerPort(int port) noexcept {
    server_port = port;
}

ScopedMcpServerPort::~ScopedMcpServerPort() {
    server_port = kMcpServerPort;
}

}  // namespace orvanic_xr
