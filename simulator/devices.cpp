#include "simulator/devices.h"

#include <string>

namespace simulator {
namespace {

std::optional<std::size_t> Axis(const Profile& profile, TopLevel top, std::size_t source, const char* axis) {
    return profile.Find(top, std::string(profile.sources[source].path) + axis);
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

void Device::SwitchOn(const Profile& new_profile) {
    profile = &new_profile;
    values.assign(new_profile.sources.size(), 0.0f);
    poses.assign(new_profile.sources.size(), std::nullopt);
}

}  // namespace simulator
