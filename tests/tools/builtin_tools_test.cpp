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

class ToolList : public IToolRegistry {
 public:
    void registerTool(mcp::tool tool, ToolHandler) override {
        names.push_back(tool.name);
        tools.push_back(std::move(tool));
    }
    std::vector<std::string> names;
    std::vector<mcp::tool> tools;
};

class BuiltinTools : public testing::Test {
 protected:
    BuiltinTools() { Renew(ContextManager::instance()); }
    ~BuiltinTools() override { Renew(ContextManager::instance()); }

    static void Enable(std::set<std::string> extensions) {
        InstanceState instance;
        instance.valid = true;
        instance.enabledExtensions = std::move(extensions);
        ContextManager::instance().setInstanceState(instance);
    }
};

constexpr char kAutomation[] = "XR_EXT_conformance_automation";
constexpr char kCapture[] = "XR_KESTX1_simulator_compositor_output_capture";

TEST_F(BuiltinTools, AreRegisteredInOrder) {
    Enable({kAutomation, kCapture});
    ToolList list;
    register_builtin_tools(list);
    EXPECT_EQ(mcp::dump_json(list.names),
              R"(["openxr_get_head_pose","openxr_get_controller_pose","openxr_get_active_interaction_profile",)"
              R"("math_calc","math_dot","math_cross","math_add","math_sub","math_mul","math_div",)"
              R"("math_build_quat","math_decompose_quat","math_multiply_quat","openxr_get_instance_info",)"
              R"("openxr_get_session_info","openxr_get_system_info","openxr_get_frame_info",)"
              R"("openxr_capture_composited_image","openxr_list_spatial_entities","openxr_exit_session",)"
              R"("openxr_set_controller_input","openxr_set_head_pose","openxr_set_controller_pose",)"
              R"("convert_unity_pose_to_openxr","convert_openxr_pose_to_unity","openxr_convert_pose_between_spaces"])");
    for (const mcp::tool& tool : list.tools) {
        SCOPED_TRACE(tool.name);
        const json& schema = tool.input_schema;
        EXPECT_TRUE(schema.at("properties").contains("reason"));
        EXPECT_TRUE(schema.at("properties").contains("sentiment"));
        EXPECT_TRUE(tool.has_annotations);
        EXPECT_TRUE(tool.output_schema.is_null());
    }
}

TEST_F(BuiltinTools, AreSkippedWithoutTheirExtension) {
    const std::vector<std::string> of_automation = {
        "INFO Skipping 'openxr_set_controller_input' tool (predicate returned false)",
        "INFO Skipping 'openxr_set_head_pose' tool (predicate returned false)",
        "INFO Skipping 'openxr_set_controller_pose' tool (predicate returned false)",
    };
    const std::vector<std::string> of_capture = {
        "INFO Skipping 'openxr_capture_composited_image' tool (predicate returned false)",
    };
    const std::vector<std::pair<const char*, std::vector<std::string>>> rows = {{kCapture, of_automation},
                                                                                {kAutomation, of_capture}};
    for (const auto& [enabled, skipping] : rows) {
        SCOPED_TRACE(enabled);
        Enable({enabled});
        LogCapture log;
        ToolList list;
        register_builtin_tools(list);
        std::vector<std::string> skipped = log.take();
        std::vector<std::string> registered;
        for (const std::string& name : list.names) registered.push_back("INFO Registered '" + name + "' tool");
        EXPECT_THAT(skipped, testing::IsSupersetOf(registered));
        std::erase_if(skipped, [](const std::string& line) { return line.starts_with("INFO Registered"); });
        EXPECT_EQ(skipped, skipping);
        EXPECT_EQ(list.names.size() + skipping.size(), 26u);
    }
}

}  // namespace
}  // namespace orvanic_xr
