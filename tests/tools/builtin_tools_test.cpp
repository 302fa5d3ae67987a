#include "tools/builtin_tools.h"

#include <gmock/gmock.h>

#include <set>
#include <string>
#include <vector>

#include "context/context_manager.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tools/tool_registry.h"

namespace orvanic_xr {
namespace {

using testing::Contains;

class ToolNames : public IToolRegistry {
 public:
    void registerTool(mcp::tool tool, ToolHandler) override { names.insert(tool.name); }
    std::set<std::string> names;
};

TEST(BuiltinTools, AreRegisteredWhereTheirExtensionIs) {
    const std::vector<std::string> moving = {"openxr_set_controller_input", "openxr_set_head_pose",
                                             "openxr_set_controller_pose"};
    const std::string capture = "openxr_capture_composited_image";
    const auto registered_with = [](const std::set<std::string>& enabled) {
        InstanceState instance;
        instance.valid = true;
        instance.enabledExtensions = enabled;
        ContextManager::instance().setInstanceState(instance);
        ToolNames registered;
        register_builtin_tools(registered);
        Renew(ContextManager::instance());
        return registered.names;
    };
    LogCapture log;
    std::set<std::string> names = registered_with({});
    EXPECT_EQ(names.size(), 22u);
    EXPECT_THAT(log.take(), Contains("INFO Skipping '" + capture + "' tool (predicate returned false)"));
    names.insert(moving.begin(), moving.end());
    EXPECT_EQ(names, registered_with({"XR_EXT_conformance_automation"}));
    names.insert(capture);
    EXPECT_EQ(names,
              registered_with({"XR_EXT_conformance_automation", "XR_KESTX1_simulator_compositor_output_capture"}));
    EXPECT_THAT(log.take(), Contains("INFO Registered '" + capture + "' tool"));
}

}  // namespace
}  // namespace orvanic_xr
