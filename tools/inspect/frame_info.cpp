#include "context/context_manager.h"
#include "tools/arguments.h"
#include "tools/inspect/cached_record.h"
#include "tools/inspect/inspect_tools.h"
#include "tools/json_conversions.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

constexpr char kDescription[] =
    "Get the most recent XR frame information including predicted display time, display period, render flag, display "
    "time, environment blend mode, and composition layer summary. Optionally includes frame history.";

constexpr CachedRecordTexts kTexts = {
    "openxr_get_frame_info tool called, frameValid=",
    "openxr_get_frame_info: frame info not yet available",
    "Frame info not yet available. No frames have been rendered.",
    "openxr_get_frame_info: returning cached frame data",
};

json layers_to_json(const std::vector<LayerSummary>& layers) {
    json output = json::array();
    for (const LayerSummary& layer : layers) {
        output.push_back({{"type", structure_type_name(layer.type)}, {"flags", layer.layerFlags}});
    }
    return output;
}

json frame_to_json(const FrameHistoryEntry& frame) {
    return {
        {"frame_state",
         {{"predicted_display_time", time_to_json(frame.predictedDisplayTime)},
          {"predicted_display_period", duration_to_json(frame.predictedDisplayPeriod)},
          {"should_render", frame.shouldRender == XR_TRUE}}},
        {"frame_end_info",
         {{"display_time", time_to_json(frame.displayTime)},
          {"environment_blend_mode", environment_blend_mode_name(frame.environmentBlendMode)},
          {"layers", layers_to_json(frame.layers)},
          {"layer_count", frame.layers.size()}}},
        {"frame_timing",
         {{"wait_frame_timestamp", unix_time_to_json(frame.waitFrameTime)},
          {"begin_frame_timestamp", unix_time_to_json(frame.beginFrameTime)},
          {"end_frame_timestamp", unix_time_to_json(frame.endFrameTime)}}},
    };
}

json frame_history_to_json() {
    json history = json::array();
    for (const FrameHistoryEntry& frame : ContextManager::instance().getFrameHistory()) {
        history.push_back(frame_to_json(frame));
    }
    LogInfo("openxr_get_frame_info: included history with ", history.size(), " entries");
    return history;
}

json describe_frame(const FrameState& frame, const json& arguments) {
    json output = frame_to_json(frame);
    output["session"] = handle_to_json(HandleValue(frame.session));
    if (flag_argument(arguments, "include_history")) output["history"] = frame_history_to_json();
    return output;
}

json handle_get_frame_info(const json& arguments, const std::string& /*session_id*/) {
    return answer_from_cache(kTexts, ContextManager::instance().getFrameState(),
                             [&](const FrameState& frame) { return describe_frame(frame, arguments); });
}

}  // namespace

ToolEntry make_openxr_get_frame_info_tool_entry() {
    ToolBuilder builder("openxr_get_frame_info", kDescription);
    builder.add_boolean_parameter("include_history", "Whether to include the full frame state history", false)
        .set_hints(true, false, false, false);
    return {builder.build(), handle_get_frame_info, {}};
}

}  // namespace orvanic_xr
