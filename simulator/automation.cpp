#include "simulator/automation.h"

#include "simulator/bindings.h"
#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/session.h"
#include "simulator/spaces.h"
#include "xr/pose_math.h"

namespace simulator {
namespace {

TopLevel CheckedTopLevel(const Session& session, XrPath path) {
    const auto split = SplitTopLevel(session.instance->PathText(path));
    if (!split || !split->rest.empty()) Refuse(XR_ERROR_PATH_UNSUPPORTED);
    return split->top;
}

struct DeviceSource {
    TopLevel top;
    Device& device;
    std::size_t index;
};

DeviceSource CheckedSource(Session& session, XrPath top_level_path, XrPath input_source_path, SourceType type) {
    const TopLevel top = CheckedTopLevel(session, top_level_path);
    const auto split = SplitTopLevel(session.instance->PathText(input_source_path));
    Device& device = session.devices[top];
    if (!device.IsActive() || !split || split->top != top) Refuse(XR_ERROR_PATH_UNSUPPORTED);
    const auto source = device.profile->Find(top, split->rest);
    if (!source || TypeOf(split->rest) != type ||
        device.profile->sources[*source].since > session.instance->api_version) {
        Refuse(XR_ERROR_PATH_UNSUPPORTED);
    }
    return {top, device, *source};
}

// Axes go both ways from their rest, everything else from 0 to 1. No number is in no range.
void RequireInRange(std::string_view source_path, float value) {
    const std::string_view component = source_path.substr(source_path.rfind('/'));
    const float least = component == "/x" || component == "/y" ? -1.0f : 0.0f;
    Require(value >= least && value <= 1.0f);
}

}  // namespace

XrResult SetInputDeviceActiveEXT(XrSession session, XrPath interaction_profile, XrPath top_level_path,
                                 XrBool32 is_active) {
    return Guarded([&](Runtime& runtime) {
        Session& owner = *runtime.Get(session);
        const Profile& profile = CheckedProfile(*owner.instance, interaction_profile);
        const TopLevel top = CheckedTopLevel(owner, top_level_path);
        if (!profile.Has(top)) Refuse(XR_ERROR_PATH_UNSUPPORTED);
        Require(is_active == XR_TRUE || is_active == XR_FALSE);
        Device& device = owner.devices[top];
        if (is_active && device.profile != &profile) device.SwitchOn(profile);
        if (!is_active && device.profile == &profile) device = Device();
        return XR_SUCCESS;
    });
}

XrResult SetInputDeviceStateBoolEXT(XrSession session, XrPath top_level_path, XrPath input_source_path,
                                    XrBool32 state) {
    return Guarded([&](Runtime& runtime) {
        Session& owner = *runtime.Get(session);
        const auto source = CheckedSource(owner, top_level_path, input_source_path, SourceType::kBoolean);
        Require(state == XR_TRUE || state == XR_FALSE);
        source.device.values[source.index] = state ? 1.0f : 0.0f;
        return XR_SUCCESS;
    });
}

XrResult SetInputDeviceStateFloatEXT(XrSession session, XrPath top_level_path, XrPath input_source_path, float state) {
    return Guarded([&](Runtime& runtime) {
        Session& owner = *runtime.Get(session);
        const auto source = CheckedSource(owner, top_level_path, input_source_path, SourceType::kFloat);
        RequireInRange(source.device.profile->sources[source.index].path, state);
        source.device.values[source.index] = state;
        return XR_SUCCESS;
    });
}

XrResult SetInputDeviceStateVector2fEXT(XrSession session, XrPath top_level_path, XrPath input_source_path,
                                        XrVector2f state) {
    return Guarded([&](Runtime& runtime) {
        Session& owner = *runtime.Get(session);
        const auto source = CheckedSource(owner, top_level_path, input_source_path, SourceType::kVector2);
        RequireInRange("/x", state.x);
        RequireInRange("/y", state.y);
        source.device.SetVector(source.top, source.index, state);
        return XR_SUCCESS;
    });
}

XrResult SetInputDeviceLocationEXT(XrSession session, XrPath top_level_path, XrPath input_source_path, XrSpace space,
                                   XrPosef pose) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        const auto source = CheckedSource(*owner, top_level_path, input_source_path, SourceType::kPose);
        const auto base = runtime.Get(space);
        Require(base->session == owner);
        const XrPosef checked = CheckedPose(pose);
        const auto base_pose = WorldPose(*base, owner->frames.LatestDisplayTime(Now()));
        // What is placed in relation to something that has no place has none either.
        std::optional<XrPosef>& placed = source.device.poses[source.index];
        placed.reset();
        if (base_pose) placed = orvanic_xr::Compose(*base_pose, checked);
        return XR_SUCCESS;
    });
}

}  // namespace simulator
