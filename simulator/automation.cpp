#include "simulator/automation.h"

#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/session.h"
#include "simulator/spaces.h"
#include "simulator/views.h"
#include "xr/input/commands.h"
#include "xr/pose_math.h"

namespace simulator {
namespace {

xr_input::SourceName NameOf(const Session& session, XrPath top_level_path, XrPath input_source_path) {
    const Instance& instance = *session.instance;
    return {instance.PathText(top_level_path), instance.PathText(input_source_path), instance.api_version};
}

// Null where the head sways by itself.
std::optional<XrPosef>* PlaceOfHead(Devices& devices) {
    Device& head = devices[TopLevel::kHead];
    const auto view = head.IsActive() ? head.profile->Find(TopLevel::kHead, "input/view_kest/pose") : std::nullopt;
    return view ? &head.poses[*view] : nullptr;
}

}  // namespace

XrResult SetInputDeviceActiveEXT(XrSession session, XrPath interaction_profile, XrPath top_level_path,
                                 XrBool32 is_active) {
    return Guarded([&](Runtime& runtime) {
        Session& owner = *runtime.Get(session);
        const Instance& instance = *owner.instance;
        const auto head = HeadPose(owner, owner.frames.LatestDisplayTime(Now()));
        const XrResult result = SetDeviceActive(owner.devices, instance, instance.PathText(interaction_profile),
                                                instance.PathText(top_level_path), is_active);
        // A head that is taken over stays where it is, until it is placed.
        if (auto* const place = PlaceOfHead(owner.devices); place && !*place) *place = head;
        return result;
    });
}

XrResult SetInputDeviceStateBoolEXT(XrSession session, XrPath top_level_path, XrPath input_source_path,
                                    XrBool32 state) {
    return Guarded([&](Runtime& runtime) {
        Session& owner = *runtime.Get(session);
        return SetBoolean(owner.devices, NameOf(owner, top_level_path, input_source_path), state);
    });
}

XrResult SetInputDeviceStateFloatEXT(XrSession session, XrPath top_level_path, XrPath input_source_path, float state) {
    return Guarded([&](Runtime& runtime) {
        Session& owner = *runtime.Get(session);
        return SetFloat(owner.devices, NameOf(owner, top_level_path, input_source_path), state);
    });
}

XrResult SetInputDeviceStateVector2fEXT(XrSession session, XrPath top_level_path, XrPath input_source_path,
                                        XrVector2f state) {
    return Guarded([&](Runtime& runtime) {
        Session& owner = *runtime.Get(session);
        return SetVector(owner.devices, NameOf(owner, top_level_path, input_source_path), state);
    });
}

XrResult SetInputDeviceLocationEXT(XrSession session, XrPath top_level_path, XrPath input_source_path, XrSpace space,
                                   XrPosef pose) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        auto* const placed = FindPose(owner->devices, NameOf(*owner, top_level_path, input_source_path));
        if (!placed) Refuse(XR_ERROR_PATH_UNSUPPORTED);
        const auto base = runtime.Get(space);
        Require(base->session == owner);
        const XrPosef checked = CheckedPose(pose);
        const auto base_pose = WorldPose(*base, owner->frames.LatestDisplayTime(Now()));
        // What is placed in relation to something that has no place has none either.
        placed->reset();
        if (base_pose) *placed = orvanic_xr::Compose(*base_pose, checked);
        return XR_SUCCESS;
    });
}

}  // namespace simulator
