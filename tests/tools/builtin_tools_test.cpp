#include "tools/builtin_tools.h"

#include <gmock/gmock.h>

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "context/context_manager.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tools/tool_registry.h"

namespace orvanic_xr {
namespace {

class ToolNames : public IToolRegistry {
 public:
    void registerTool(mcp::tool tool, ToolHandler) override { names.push_back(tool.name); }
    std::vector<std::string> names;
};

constexpr char kAutomation[] = "XR_EXT_conformance_automation";
constexpr char kCapture[] = "XR_KESTX1_simulator_compositor_output_capture";

constexpr char kAll[] =
    "openxr_get_head_pose openxr_get_controller_pose openxr_get_active_interaction_profile math_calc math_dot "
    "math_cross math_add math_sub math_mul math_div math_build_quat math_decompose_quat math_multiply_quat "
    "openxr_get_instance_info openxr_get_session_info openxr_get_system_info openxr_get_frame_info "
    "openxr_capture_composited_image openxr_list_spatial_entities openxr_exit_session openxr_set_controller_input "
    "openxr_set_head_pose openxr_set_controller_pose convert_unity_pose_to_openxr convert_openxr_pose_to_unity "
    "openxr_convert_pose_between_spaces";

TEST(BuiltinTools, AreRegisteredInOrderWhereTheirExtensionIs) {
    for (const std::set<std::string>& enabled : {std::set<std::string>{kAutomation, kCapture}, {kAutomation}, {}}) {
        SCOPED_TRACE(enabled.size());
        InstanceState instance;
        instance.valid = true;
        instance.enabledExtensions = enabled;
        ContextManager::instance().setInstanceState(instance);
        std::vector<std::string> names;
        std::vector<std::string> lines;
        std::istringstream all(kAll);
        for (std::string name; all >> name;) {
            bool there = true;
            if (name == "openxr_capture_composited_image") there = enabled.contains(kCapture);
            if (name.starts_with("openxr_set_")) there = enabled.contains(kAutomation);
            if (there) names.push_back(name);
            lines.push_back(there ? "INFO Registered '" + name + "' tool"
                                  : "INFO Skipping '" + name + "' tool (predicate returned false)");
        }
        LogCapture log;
        ToolNames registered;
        register_builtin_tools(registered);
        EXPECT_EQ(registered.names, names);
        EXPECT_EQ(log.take(), lines);
    }
    Renew(ContextManager::instance());
}

}  // namespace
}  // namespace orvanic_xr
