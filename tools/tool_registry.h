// The ways in to a tool: over the network through the MCP server, and from inside the process. A tool that is
// registered once, with the chain, lands in both.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "mcp/tool.h"

namespace orvanic_xr {

using mcp::json;
using ToolHandler = mcp::tool_handler;

class McpServerHost;

class IToolRegistry {
 public:
    virtual ~IToolRegistry() = default;
    // A later registration of a name replaces the earlier one. Any thread.
    virtual void registerTool(mcp::tool tool, ToolHandler handler) = 0;
};

// Outcome of a call from inside the process. `result` is the tool's content, an empty object on failure;
// `error` is empty on success.
struct ToolInvocationResult {
    bool success = false;
    json result = json::object();
    std::string error;
};

class InProcessToolRegistry : public IToolRegistry {
 public:
    static InProcessToolRegistry& instance();

    void registerTool(mcp::tool tool, ToolHandler handler) override;
    // Runs the tool on the calling thread, with no lock held and an empty session id. Throws nothing.
    ToolInvocationResult invoke(const std::string& name, const json& arguments);
    void clear();

 private:
    // Guards handlers_.
    std::mutex mutex_;
    std::unordered_map<std::string, ToolHandler> handlers_;
};

class HttpToolRegistry : public IToolRegistry {
 public:
    explicit HttpToolRegistry(McpServerHost& host) : host_(&host) {}
    void registerTool(mcp::tool tool, ToolHandler handler) override;

 private:
    McpServerHost* host_;
};

// Passes each registration on to its registries, in their order; null ones are passed over. Owns none of them.
class ChainedToolRegistry : public IToolRegistry {
 public:
    explicit ChainedToolRegistry(std::vector<IToolRegistry*> registries) : registries_(std::move(registries)) {}
    void registerTool(mcp::tool tool, ToolHandler handler) override;

 private:
    std::vector<IToolRegistry*> registries_;
};

}  // namespace orvanic_xr
