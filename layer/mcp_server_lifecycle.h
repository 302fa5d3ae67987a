// Starts the MCP server with the layer's tools when an instance is made, and takes both down before it goes.
#pragma once

namespace orvanic_xr {

// Without a server the tools are still there for callers in the process. A second call adds a fresh set of
// registries to the server that runs. Lets no exception out.
void InitializeOrvanicMcpServer() noexcept;

// Waits for tool calls that still run. No tool is registered or called through the server when it returns.
void DestroyOrvanicMcpServer() noexcept;

// While one lives, InitializeOrvanicMcpServer takes `port`. For tests; one at a time.
class ScopedMcpServerPort {
 public:
    explicit ScopedMcpServerPort(int port) noexcept;
    ~ScopedMcpServerPort();
    ScopedMcpServerPort(const ScopedMcpServerPort&) = delete;
    ScopedMcpServerPort& operator=(const ScopedMcpServerPort&) = delete;
};

}  // namespace orvanic_xr
