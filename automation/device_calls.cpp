// XR_EXT_conformance_automation: called by a layer above on behalf of an agent, on any thread.
#include <utility>

#include "automation/guard.h"
#include "automation/hooks.h"
#include "automation/session.h"
#include "automation/world.h"
#include "xr/input/commands.h"
#include "xr/pose_math.h"

namespace automation {
namespace {

using orvanic_xr::LogInfo;
using orvanic_xr::LogWarning;

// The texts of one call's paths.
struct SourceTexts {
    SourceTexts(const Instance& instance, XrPath top_level_path, XrPath input_source_path)
        : top_level(instance.PathText(top_level_path)),
          source(instance.PathText(input_source_path)),
          api_version(instance.offer.api_version) {}
    xr_input::SourceName Name() const { return {top_level, source, api_version}; }

    const std::string top_level;
    const std::string source;
    const XrVersion api_version;
};

// `set(devices, name)` with the session locked.
template <class Set>
XrResult SetState(XrSession session, XrPath top_level_path, XrPath input_source_path, Set set) {
    const auto owner = Registry::instance().Find(session);
    if (!owner) return XR_ERROR_HANDLE_INVALID;
    const SourceTexts texts(*owner->instance, top_level_path, input_source_path);
    const std::lock_guard lock(owner->mutex);
    return set(owner->devices, texts.Name());
}

// A head that is taken over stays where it is, until it is placed.
void PlaceHeadWhereItIs(Session& session) {
    XrSpace view = XR_NULL_HANDLE;
    {
        const std::lock_guard lock(session.mutex);
        if (!HeadPoseSource(session.devices[TopLevel::kHead])) return;
        view = session.view_space;
    }
    // The runtime's: the head is not simulated yet.
    const WorldLocation real = LocateInWorld(session, NamedSpace(view), session.LatestTime(), Moment::kNewest);
    if (real.flags == 0) return;
    const std::lock_guard lock(session.mutex);
    xr_input::Device& head = session.devices[TopLevel::kHead];
    const auto source = HeadPoseSource(head);
    if (source && !head.poses[*source]) head.poses[*source] = real.moving.pose;
}

// With the session locked.
TopLevels ActiveDevices(const xr_input::Devices& devices) {
    TopLevels active = 0;
    for (std::size_t i = 0; i < xr_input::kTopLevelCount; ++i) {
        const auto top = static_cast<TopLevel>(i);
        if (devices[top].IsActive()) active = static_cast<TopLevels>(active | xr_input::BitOf(top));
    }
    return active;
}

// From now on the hooks go by what the devices are. Tells what they went by before, and now.
std::pair<TopLevels, TopLevels> GoByDevices(Session& session) {
    const std::lock_guard lock(session.mutex);
    const TopLevels after = ActiveDevices(session.devices);
    session.simulates_head = HeadPoseSource(session.devices[TopLevel::kHead]).has_value();
    // What was seen of other devices would be taken for a movement of these.
    if (session.simulated != after) {
        session.history.Clear();
        session.devices_changed = true;
    }
    return {session.simulated.exchange(after), after};
}

void TellOfSimulated(const Session& session, TopLevels before, TopLevels after) {
    if (before == after) return;
    for (std::size_t i = 0; i < xr_input::kTopLevelCount; ++i) {
        const TopLevels bit = xr_input::BitOf(static_cast<TopLevel>(i));
        if ((before & bit) == (after & bit)) continue;
        LogInfo("Automation: ", xr_input::kTopLevelPaths[i],
                (after & bit) != 0 ? " is simulated from now on" : " is the real one again", ", session ",
                session.handle);
    }
}

}  // namespace

XrResult SetInputDeviceActiveEXT(XrSession session, XrPath interaction_profile, XrPath top_level_path,
                                 XrBool32 is_active) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        if (const XrResult result = owner->MakeSpaces(); XR_FAILED(result)) {
            LogWarning("Automation: the runtime refuses a reference space, result: ", result);
            return result;
        }
        const std::string profile = owner->instance->PathText(interaction_profile);
        const std::string top_level = owner->instance->PathText(top_level_path);
        const XrTime now = owner->LatestTime();
        {
            const std::lock_guard lock(owner->mutex);
            // The world of a time when nothing stood in it is of no interest.
            owner->FollowRecentresLocked(now);
            const XrResult result =
                SetDeviceActive(owner->devices, owner->instance->offer, profile, top_level, is_active);
            if (XR_FAILED(result)) return result;
        }
        if (!owner->simulates_head) PlaceHeadWhereItIs(*owner);
        const auto [before, after] = GoByDevices(*owner);
        TellOfSimulated(*owner, before, after);
        return XR_SUCCESS;
    });
}

XrResult SetInputDeviceStateBoolEXT(XrSession session, XrPath top_level_path, XrPath input_source_path,
                                    XrBool32 state) {
    return Guarded([&] {
        return SetState(session, top_level_path, input_source_path,
                        [&](auto& devices, const auto& name) { return SetBoolean(devices, name, state); });
    });
}

XrResult SetInputDeviceStateFloatEXT(XrSession session, XrPath top_level_path, XrPath input_source_path, float state) {
    return Guarded([&] {
        return SetState(session, top_level_path, input_source_path,
                        [&](auto& devices, const auto& name) { return SetFloat(devices, name, state); });
    });
}

XrResult SetInputDeviceStateVector2fEXT(XrSession session, XrPath top_level_path, XrPath input_source_path,
                                        XrVector2f state) {
    return Guarded([&] {
        return SetState(session, top_level_path, input_source_path,
                        [&](auto& devices, const auto& name) { return SetVector(devices, name, state); });
    });
}

XrResult SetInputDeviceLocationEXT(XrSession session, XrPath top_level_path, XrPath input_source_path, XrSpace space,
                                   XrPosef pose) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        const auto good = orvanic_xr::GoodPose(pose);
        if (!owner || space == XR_NULL_HANDLE) return XR_ERROR_HANDLE_INVALID;
        if (!owner->Simulates()) return XR_ERROR_PATH_UNSUPPORTED;
        if (!good) return XR_ERROR_POSE_INVALID;
        const XrTime now = owner->LatestTime();
        const WorldLocation base = LocateInWorld(*owner, NamedSpace(space), now, Moment::kNewest);
        const SourceTexts texts(*owner->instance, top_level_path, input_source_path);
        const std::lock_guard lock(owner->mutex);
        owner->FollowRecentresLocked(now);
        auto* const placed = FindPose(owner->devices, texts.Name());
        if (!placed) return XR_ERROR_PATH_UNSUPPORTED;
        // What is placed in relation to something that has no place has none either.
        placed->reset();
        if (base.flags != 0) *placed = orvanic_xr::Compose(base.moving.pose, *good);
        return XR_SUCCESS;
    });
}

}  // namespace automation
