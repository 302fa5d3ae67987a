#include "tools/tool_registry.h"

#include <exception>
#include <utility>

#include "mcp/server_host.h"

namespace orvanic_xr {
namespace {

ToolInvocationResult invocation_failed(std::string error) {
    return {false, json::object(), std::move(error)};
}

}  // namespace

InProcessToolRegistry& InProcessToolRegistry::instance() {
    static InProcessToolRegistry& the = *new InProcessToolRegistry;
    return the;
}

void InProcessToolRegistry::registerTool(mcp::tool tool, ToolHandler handler) {
    std::lock_guard lock(mutex_);
    handlers_.insert_or_assign(std::move(tool.name), std::move(handler));
}

ToolInvocationResult InProcessToolRegistry::invoke(const std::string& name, const json& arguments) {
    try {
        ToolHandler handler;
        {
            std::lock_guard lock(mutex_);
            const auto found = handlers_.find(name);
            if (found == handlers_.end()) return invocation_failed("tool '" + name + "' is not registered");
            handler = found->second;
        }
        return {true, handler(arguments, {}), {}};
    } catch (const std::exception& exception) {
        return invocation_failed(exception.what());
    } catch (...) {
        return invocation_failed("unknown exception while invoking tool");
    }
}

void InProcessToolRegistry::clear() {
    std::lock_guard lock(mutex_);
    handlers_.clear();
}

void HttpToolRegistry::registerTool(mcp::tool tool, ToolHandler handler) {
    host_->register_tool(tool, handler);
}

void ChainedToolRegistry::registerTool(mcp::tool tool, ToolHandler handler) {
    for (IToolRegistry* registry : registries_) {
        if (registry) registry->registerTool(tool, handler);
    }
}

}  // namespace orvanic_xr
