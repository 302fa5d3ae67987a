#include "xr/input/devices.h"

#include <string>

#include "xr/pose_math.h"

namespace xr_input {
namespace {

std::optional<std::size_t> Axis(const Profile& profile, TopLevel top, std::size_t source, const char* axis) {
    return profile.Find(top, profile.sources[source].path + axis);
}

}  // namespace

XrVector2f Device::Vector(TopLevel top, std::size_t source) const {
    const auto x = Axis(*profile, top, source, "/x");
    const auto y = Axis(*profile, top, source, "/y");
    return {x ? values[*x] : 0.0f, y ? values[*y] : 0.0f};
}

void Device::SetVector(TopLevel top, std::size_t source, const XrVector2f& value) {
    if (const auto x = Axis(*profile, top, source, "/x")) values[*x] = value.x;
    if (const auto y = Axis(*profile, top, source, "/y")) values[*y] = value.y;
}

std::optional<XrPosef> Device::Pose(TopLevel top, std::size_t source) const {
    if (poses[source] || profile->sources[source].path != "input/grip_surface/pose") return poses[source];
    const auto grip = profile->Find(top, "input/grip/pose");
    if (!grip || !poses[*grip]) return std::nullopt;
    // The grip is the middle of what the hand closes around; its x axis points out of the left palm, into the right.
    constexpr float kRadius = 0.02f;
    const float to_palm = top == TopLevel::kLeftHand ? -kRadius : kRadius;
    return orvanic_xr::Compose(*poses[*grip], {{0, 0, 0, 1}, {to_palm, 0, 0}});
}

void Device::SwitchOn(const Profile& new_profile) {
    profile = &new_profile;
    values.assign(new_profile.sources.size(), 0.0f);
    poses.assign(new_profile.sources.size(), std::nullopt);
}

}  // namespace xr_input
