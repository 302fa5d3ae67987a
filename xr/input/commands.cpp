#include "xr/input/commands.h"

namespace xr_input {
namespace {

std::optional<TopLevel> TopLevelOf(std::string_view path) {
    const auto split = SplitTopLevel(path);
    if (!split || !split->rest.empty()) return std::nullopt;
    return split->top;
}

struct DeviceSource {
    TopLevel top;
    Device& device;
    std::size_t index;
};

std::optional<DeviceSource> FindSource(Devices& devices, const SourceName& name, SourceType type) {
    const auto top = TopLevelOf(name.top_level);
    const auto split = SplitTopLevel(name.source);
    if (!top || !split || split->top != *top) return std::nullopt;
    Device& device = devices[*top];
    if (!device.IsActive() || TypeOf(split->rest) != type) return std::nullopt;
    const auto source = device.profile->Find(*top, split->rest);
    if (!source || device.profile->sources[*source].since > name.api_version) return std::nullopt;
    return DeviceSource{*top, device, *source};
}

// No number is in no range.
bool IsInRange(std::string_view source_path, float value) {
    const std::string_view component = source_path.substr(source_path.rfind('/'));
    const float least = component == "/x" || component == "/y" ? -1.0f : 0.0f;
    return value >= least && value <= 1.0f;
}

bool IsBoolean(XrBool32 value) {
    return value == XR_TRUE || value == XR_FALSE;
}

}  // namespace

XrResult SetDeviceActive(Devices& devices, const Offer& offer, std::string_view profile_path,
                         std::string_view top_level, XrBool32 is_active) {
    const Profile* const profile = FindProfile(profile_path);
    const auto top = TopLevelOf(top_level);
    if (!profile || !profile->IsOfferedBy(offer) || !top || !profile->Has(*top)) return XR_ERROR_PATH_UNSUPPORTED;
    if (!IsBoolean(is_active)) return XR_ERROR_VALIDATION_FAILURE;
    Device& device = devices[*top];
    if (is_active && device.profile != profile) device.SwitchOn(*profile);
    if (!is_active && device.profile == profile) device = Device();
    return XR_SUCCESS;
}

XrResult SetBoolean(Devices& devices, const SourceName& name, XrBool32 state) {
    const auto found = FindSource(devices, name, SourceType::kBoolean);
    if (!found) return XR_ERROR_PATH_UNSUPPORTED;
    if (!IsBoolean(state)) return XR_ERROR_VALIDATION_FAILURE;
    found->device.values[found->index] = state ? 1.0f : 0.0f;
    return XR_SUCCESS;
}

XrResult SetFloat(Devices& devices, const SourceName& name, float state) {
    const auto found = FindSource(devices, name, SourceType::kFloat);
    if (!found) return XR_ERROR_PATH_UNSUPPORTED;
    if (!IsInRange(found->device.profile->sources[found->index].path, state)) return XR_ERROR_VALIDATION_FAILURE;
    found->device.values[found->index] = state;
    return XR_SUCCESS;
}

XrResult SetVector(Devices& devices, const SourceName& name, const XrVector2f& state) {
    const auto found = FindSource(devices, name, SourceType::kVector2);
    if (!found) return XR_ERROR_PATH_UNSUPPORTED;
    if (!IsInRange("/x", state.x) || !IsInRange("/y", state.y)) return XR_ERROR_VALIDATION_FAILURE;
    found->device.SetVector(found->top, found->index, state);
    return XR_SUCCESS;
}

std::optional<XrPosef>* FindPose(Devices& devices, const SourceName& name) {
    const auto found = FindSource(devices, name, SourceType::kPose);
    return found ? &found->device.poses[found->index] : nullptr;
}

}  // namespace xr_input
