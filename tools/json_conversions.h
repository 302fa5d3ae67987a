// JSON forms of OpenXR values, keys in wire order, and numbers out of JSON. Poses are metres and x, y, z, w;
// times are nanoseconds.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <string>

#include "mcp/json.h"
#include "xr/enum_names.h"

namespace orvanic_xr {

using mcp::json;

json time_to_json(XrTime time);                            // XrTime, time_in_seconds
json duration_to_json(XrDuration duration);                // XrDuration, duration_in_seconds
json unix_time_to_json(std::int64_t ns);                   // unix_timestamp, iso8601; `ns` since 1970
json handle_to_json(std::uint64_t handle);                 // handle (decimal text), handle_hex
json vector3_to_json(const XrVector3f& vector);            // [x, y, z]
json quaternion_to_json(const XrQuaternionf& quaternion);  // [x, y, z, w]
json pose_to_json(const XrPosef& pose);                    // position [x, y, z], orientation [x, y, z, w]
// position_valid, orientation_valid, position_tracked, orientation_tracked
json space_location_flags_to_json(XrSpaceLocationFlags flags);

std::string iso8601_text(std::int64_t ns);  // UTC, "2026-01-02T03:04:05.006Z"

// Numbers read out of arguments never leave their type: what doesn't fit is clamped to the nearest value that
// does, NaN becomes 0, fractions are cut off for integers. `value` must be a JSON number (as nlohmann's get<>,
// these throw its type error otherwise).
std::uint64_t clamped_uint64(const json& value);
float clamped_float(const json& value);

// Vectors and quaternions given as arrays; the caller has checked the length.
XrVector3f vector3_from_json(const json& array);
XrQuaternionf quaternion_from_json(const json& array);

}  // namespace orvanic_xr
