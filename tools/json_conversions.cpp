#include "tools/json_conversions.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>

#include "diagnostics/number_text.h"

namespace orvanic_xr {
namespace {

constexpr double kNanosecondsPerSecond = 1e9;

double seconds(std::int64_t ns) {
    return static_cast<double>(ns) / kNanosecondsPerSecond;
}

}  // namespace

json time_to_json(XrTime time) {
    return {{"XrTime", time}, {"time_in_seconds", seconds(time)}};
}

json duration_to_json(XrDuration duration) {
    return {{"XrDuration", duration}, {"duration_in_seconds", seconds(duration)}};
}

json unix_time_to_json(std::int64_t ns) {
    return {{"unix_timestamp", seconds(ns)}, {"iso8601", iso8601_text(ns)}};
}

json handle_to_json(std::uint64_t handle) {
    return {{"handle", std::to_string(handle)}, {"handle_hex", HexText(handle)}};
}

json vector3_to_json(const XrVector3f& vector) {
    return json::array({vector.x, vector.y, vector.z});
}

json quaternion_to_json(const XrQuaternionf& quaternion) {
    return json::array({quaternion.x, quaternion.y, quaternion.z, quaternion.w});
}

json pose_to_json(const XrPosef& pose) {
    return {{"position", vector3_to_json(pose.position)}, {"orientation", quaternion_to_json(pose.orientation)}};
}

json space_location_flags_to_json(XrSpaceLocationFlags flags) {
    return {{"position_valid", (flags & XR_SPACE_LOCATION_POSITION_VALID_BIT) != 0},
            {"orientation_valid", (flags & XR_SPACE_LOCATION_ORIENTATION_VALID_BIT) != 0},
            {"position_tracked", (flags & XR_SPACE_LOCATION_POSITION_TRACKED_BIT) != 0},
            {"orientation_tracked", (flags & XR_SPACE_LOCATION_ORIENTATION_TRACKED_BIT) != 0}};
}

// By the calendar of the standard library: gmtime reads the host's environment.
std::string iso8601_text(std::int64_t ns) {
    using namespace std::chrono;
    const sys_time<milliseconds> time{floor<milliseconds>(nanoseconds{ns})};
    const sys_days day = floor<days>(time);
    const year_month_day date{day};
    const hh_mm_ss clock{time - day};
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
    return text;
}

std::uint64_t clamped_uint64(const json& value) {
    if (value.is_number_unsigned()) return value.get<std::uint64_t>();
    if (value.is_number_integer()) {
        return static_cast<std::uint64_t>(std::max<std::int64_t>(value.get<std::int64_t>(), 0));
    }
    constexpr double kTooLarge = 18446744073709551616.0;  // 2^64
    const double number = value.get<double>();
    if (number >= kTooLarge) return std::numeric_limits<std::uint64_t>::max();
    return number > 0.0 ? static_cast<std::uint64_t>(number) : 0;  // NaN is not greater
}

float clamped_float(const json& value) {
    constexpr double kLargest = std::numeric_limits<float>::max();
    const double number = value.get<double>();
    return std::isnan(number) ? 0.0f : static_cast<float>(std::clamp(number, -kLargest, kLargest));
}

XrVector3f vector3_from_json(const json& array) {
    return {clamped_float(array.at(0)), clamped_float(array.at(1)), clamped_float(array.at(2))};
}

XrQuaternionf quaternion_from_json(const json& array) {
    return {clamped_float(array.at(0)), clamped_float(array.at(1)), clamped_float(array.at(2)),
            clamped_float(array.at(3))};
}

}  // namespace orvanic_xr
