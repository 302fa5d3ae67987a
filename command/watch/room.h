// A room as it is seen from above, out of the answers of the layer's tools. Metres: x to the right, z to the back, so
// that a plan with z downwards has "ahead" at its top. Pure.
#pragma once

#include <openxr/openxr.h>

#include <optional>
#include <vector>

#include "mcp/json.h"

namespace velmoor {

using mcp::json;

struct plan_point {
    float x = 0;
    float z = 0;
};

// The outline of a box of which a pose is the centre: the convex hull of its corners from above, without its end again.
// A wall is two points.
std::vector<plan_point> outline_of(const XrPosef& center, const XrVector3f& size);

// Of the answer of openxr_list_spatial_entities: name, label and outline of each, at most 200.
json entities_on_plan(const json& answer);

// Of the answer of openxr_get_head_pose or openxr_get_controller_pose: position, and heading and pitch in degrees, to
// the left and up. Null where the runtime does not know it.
json device_on_plan(const json& answer);

// Of the answer of openxr_get_frame_info with its history: frames a second, as far as two are known, and the seconds
// since the last one. `now` is in seconds since 1970.
json frames_in(const json& answer, double now);

}  // namespace velmoor
