#include "tools/tool_registry.h"

#include <gtest/gtest.h>

#include <string>

namespace orvanic_xr {
namespace {

mcp::tool named(const std::string& name) {
    mcp::tool tool;
    tool.name = name;
    return tool;
}

ToolHandler answering(const json& content) {
    return [content](const json&, const std::string&) { return content; };
}

// Outcome of a call as one line.
std::string Invoke(InProcessToolRegistry& registry, const std::string& name) {
    const ToolInvocationResult result = registry.invoke(name, json{{"a", 1}});
    return (result.success ? "ok " : "failed ") + mcp::dump_json(result.result) + " " + result.error;
}

// No lock is held while a tool runs, so it may call others, replace itself and empty the registry.
TEST(InProcessToolRegistry, MayBeChangedByATool) {
    InProcessToolRegistry registry;
    registry.registerTool(named("inner"), answering("old"));
    registry.registerTool(named("inner"), answering(1));
    registry.registerTool(named("outer"), [&](const json&, const std::string&) {
        registry.registerTool(named("outer"), answering(2));
        const std::string inner = Invoke(registry, "inner");
        registry.clear();
        return json(inner);
    });
    EXPECT_EQ(Invoke(registry, "outer"), "ok \"ok 1 \" ");
    EXPECT_EQ(Invoke(registry, "outer"), "failed {} tool 'outer' is not registered");
}

}  // namespace
}  // namespace orvanic_xr
