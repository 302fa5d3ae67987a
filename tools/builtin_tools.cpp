#include "tools/builtin_tools.h"

#include <iterator>
#include <utility>
#include <vector>

#include "capture/capture_tools.h"
#include "diagnostics/logger.h"
#include "scene/scene_tools.h"
#include "tools/argument_check.h"
#include "tools/convert/convert_tools.h"
#include "tools/inspect/inspect_tools.h"
#include "tools/math/math_tools.h"
#include "tools/simulation/simulation_tools.h"
#include "tools/tool_entry.h"

namespace orvanic_xr {
namespace {

constexpr ToolEntry (*kBuiltinTools[])() = {
    make_openxr_get_head_pose_tool_entry,
    make_openxr_get_controller_pose_tool_entry,
    make_openxr_get_active_interaction_profile_tool_entry,
    make_math_calc_tool_entry,
    make_math_dot_tool_entry,
    make_math_cross_tool_entry,
    make_math_add_tool_entry,
    make_math_sub_tool_entry,
    make_math_mul_tool_entry,
    make_math_div_tool_entry,
    make_math_build_quat_tool_entry,
    make_math_decompose_quat_tool_entry,
    make_math_multiply_quat_tool_entry,
    make_openxr_get_instance_info_tool_entry,
    make_openxr_get_session_info_tool_entry,
    make_openxr_get_system_info_tool_entry,
    make_openxr_get_frame_info_tool_entry,
    make_openxr_capture_composited_image_tool_entry,
    make_openxr_list_spatial_entities_tool_entry,
    make_openxr_exit_session_tool_entry,
    make_openxr_set_controller_input_tool_entry,
    make_openxr_set_head_pose_tool_entry,
    make_openxr_set_controller_pose_tool_entry,
    make_convert_unity_pose_to_openxr_tool_entry,
    make_convert_openxr_pose_to_unity_tool_entry,
    make_openxr_convert_pose_between_spaces_tool_entry,
};

}  // namespace

void register_builtin_tools(IToolRegistry& registry) {
    std::vector<ToolEntry> entries;
    entries.reserve(std::size(kBuiltinTools));
    for (const auto make_entry : kBuiltinTools) entries.push_back(make_entry());
    for (ToolEntry& entry : entries) {
        const std::string name = entry.tool.name;
        if (entry.predicate && !entry.predicate()) {
            LogInfo("Skipping '", name, "' tool (predicate returned false)");
            continue;
        }
        add_reason_and_sentiment_parameters(entry.tool);
        ToolHandler checked = warn_of_unfit_arguments(entry.tool, std::move(entry.handler));
        registry.registerTool(std::move(entry.tool), wrapWithTelemetry(name, std::move(checked)));
        LogInfo("Registered '", name, "' tool");
    }
}

std::vector<mcp::tool> builtin_tool_declarations() {
    std::vector<mcp::tool> declarations;
    for (const auto make_entry : kBuiltinTools) declarations.push_back(make_entry().tool);
    return declarations;
}

}  // namespace orvanic_xr
