#include "command/xr/aim.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "xr/pose_math.h"

namespace velmoor {
namespace {

constexpr XrVector3f kAhead = {0, 0, -1};
constexpr XrVector3f kUp = {0, 1, 0};
constexpr float kLevel = 1e-4f;  // a shorter part of a direction along the horizon tells no heading

XrQuaternionf around(const XrVector3f& axis, float angle) {
    const float sine = std::sin(angle / 2);
    return {axis.x * sine, axis.y * sine, axis.z * sine, std::cos(angle / 2)};
}

XrQuaternionf yawed(float heading) {
    return around(kUp, heading);
}

float heading_of_direction(const XrVector3f& direction) {
    return std::atan2(-direction.x, -direction.z);
}

}  // namespace

float heading_of(const XrQuaternionf& orientation) {
    const XrVector3f ahead = orvanic_xr::Rotate(orientation, kAhead);
    if (std::hypot(ahead.x, ahead.z) > kLevel) return heading_of_direction(ahead);
    const XrVector3f top = orvanic_xr::Rotate(orientation, kUp);
    return heading_of_direction(ahead.y > 0 ? orvanic_xr::Negate(top) : top);
}

XrQuaternionf facing(const XrVector3f& direction, float heading) {
    const float level = std::hypot(direction.x, direction.z);
    const float yaw = level > kLevel * orvanic_xr::Length(direction) ? heading_of_direction(direction) : heading;
    return orvanic_xr::Multiply(yawed(yaw), around({1, 0, 0}, std::atan2(direction.y, level)));
}

XrPosef moved(const XrPosef& from, const step& by) {
    const XrVector3f way = orvanic_xr::Rotate(yawed(heading_of(from.orientation)), {by.right, by.up, -by.ahead});
    const XrQuaternionf turned = orvanic_xr::Multiply(yawed(by.turn_left), from.orientation);
    return {orvanic_xr::safe_normalize(orvanic_xr::Multiply(turned, around({1, 0, 0}, by.look_up))),
            orvanic_xr::Add(from.position, way)};
}

XrPosef seen_from(const XrPosef& space, const XrPosef& pose) {
    const XrQuaternionf back = orvanic_xr::Conjugate(space.orientation);
    return {orvanic_xr::Multiply(back, pose.orientation),
            orvanic_xr::Rotate(back, orvanic_xr::Add(pose.position, orvanic_xr::Negate(space.position)))};
}

XrPosef carried(const XrPosef& held, const XrPosef& from, const XrPosef& to) {
    return orvanic_xr::Compose(to, seen_from(from, held));
}

ray ray_through(const XrPosef& eye, const XrFovf& fov, float x, float y) {
    const float left = std::tan(fov.angleLeft);
    const float top = std::tan(fov.angleUp);
    const XrVector3f to = {left + x * (std::tan(fov.angleRight) - left), top + y * (std::tan(fov.angleDown) - top), -1};
    return {eye.position, orvanic_xr::safe_normalize(orvanic_xr::Rotate(eye.orientation, to))};
}

std::optional<float> distance_to_box(const ray& along, const XrPosef& center, const XrVector3f& size) {
    const XrVector3f from = seen_from(center, {center.orientation, along.origin}).position;
    const XrVector3f to = orvanic_xr::Rotate(orvanic_xr::Conjugate(center.orientation), along.direction);
    float enters = -std::numeric_limits<float>::infinity();
    float leaves = std::numeric_limits<float>::infinity();
    for (const auto& [begin, way, half] : {std::array{from.x, to.x, size.x / 2}, std::array{from.y, to.y, size.y / 2},
                                           std::array{from.z, to.z, size.z / 2}}) {
        if (way == 0) {
            if (std::abs(begin) > half) return std::nullopt;
            continue;
        }
        const auto [near, far] = std::minmax({(-half - begin) / way, (half - begin) / way});
        enters = std::max(enters, near);
        leaves = std::min(leaves, far);
    }
    if (enters > leaves || leaves <= 0) return std::nullopt;
    return enters > 0 ? enters : leaves;
}

}  // namespace velmoor
