// Poses of head and hands by the layer's tools, as they stand in JSON. What can't be told throws std::runtime_error.
#pragma once

#include <openxr/openxr.h>

#include <optional>
#include <string>

#include "command/bridge/own_tool.h"

namespace velmoor {

// The JSON of an answer. A text that is none is what keeps the tool from answering.
json answer_of(tool_run& run, const char* tool, const json& arguments);

// {"position": [x, y, z], "orientation": [x, y, z, w]}, or the orientation alone.
json to_json(const XrPosef& pose);
std::optional<XrPosef> pose_from(const json& told);

// `where` has what goes along with each call: `app` and `base_space`, as far as they are given.
XrPosef head_pose(tool_run& run, const json& where);
struct hand_pose {
    XrPosef pose;
    bool is_simulated;
};
// Nothing where the runtime does not know it.
std::optional<hand_pose> controller_pose(tool_run& run, const json& where, const std::string& hand,
                                         const std::string& kind);

// From now on head and hands are where tools put them.
void take_over(tool_run& run, const json& app);

}  // namespace velmoor
