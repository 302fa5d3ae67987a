#include "automation/session.h"

#include <utility>

#include "diagnostics/logger.h"
#include "xr/pose_math.h"

namespace automation {
namespace {

thread_local bool makes_frames = false;

XrResult MakeSpace(const Session& session, XrReferenceSpaceType type, XrSpace& space) {
    const XrReferenceSpaceCreateInfo info = {XR_TYPE_REFERENCE_SPACE_CREATE_INFO, nullptr, type,
                                             orvanic_xr::kIdentityPose};
    return session.instance->next.CreateReferenceSpace(session.handle, &info, &space);
}

}  // namespace

void NoteFrameThread() {
    makes_frames = true;
}

Moment MomentOfThisThread() {
    return makes_frames ? Moment::kFrame : Moment::kNewest;
}

std::optional<std::size_t> HeadPoseSource(const xr_input::Device& head) {
    if (!head.IsActive()) return std::nullopt;
    return head.profile->Find(TopLevel::kHead, "input/view_kest/pose");
}

XrResult Session::MakeSpaces() {
    {
        const std::lock_guard lock(mutex);
        if (world_space != XR_NULL_HANDLE) return XR_SUCCESS;
    }
    XrSpace world = XR_NULL_HANDLE;
    XrSpace view = XR_NULL_HANDLE;
    XrReferenceSpaceType type = XR_REFERENCE_SPACE_TYPE_STAGE;
    XrResult result = MakeSpace(*this, type, world);
    if (XR_FAILED(result)) {
        type = XR_REFERENCE_SPACE_TYPE_LOCAL;
        result = MakeSpace(*this, type, world);
    }
    if (XR_FAILED(result)) return result;
    result = MakeSpace(*this, XR_REFERENCE_SPACE_TYPE_VIEW, view);
    if (XR_SUCCEEDED(result)) {
        const std::lock_guard lock(mutex);
        if (world_space == XR_NULL_HANDLE) {
            world_space = std::exchange(world, XR_NULL_HANDLE);
            view_space = std::exchange(view, XR_NULL_HANDLE);
            world_type = type;
        }
    }
    // Another thread was quicker, or the second one was refused.
    if (world != XR_NULL_HANDLE) instance->next.DestroySpace(world);
    if (view != XR_NULL_HANDLE) instance->next.DestroySpace(view);
    return result;
}

void Session::DestroySpaces() {
    XrSpace world = XR_NULL_HANDLE;
    XrSpace view = XR_NULL_HANDLE;
    {
        const std::lock_guard lock(mutex);
        world = std::exchange(world_space, XR_NULL_HANDLE);
        view = std::exchange(view_space, XR_NULL_HANDLE);
    }
    if (world != XR_NULL_HANDLE) instance->next.DestroySpace(world);
    if (view != XR_NULL_HANDLE) instance->next.DestroySpace(view);
}

void Session::Latch() {
    const XrTime time = waited;
    const std::lock_guard lock(mutex);
    FollowRecentresLocked(time);
    history.Add(time, devices);
}

void Session::FollowRecentresLocked(XrTime time) {
    for (const Recentre& recentre : recentres) {
        if (time < recentre.at) continue;
        RebaseDevices(devices, recentre.old_world_in_new);
        history.Rebase(recentre.old_world_in_new);
    }
    std::erase_if(recentres, [&](const Recentre& recentre) { return time >= recentre.at; });
}

XrTime Session::LatestTime() const {
    const XrTime time = waited;
    return time != 0 ? time : instance->Now();
}

std::optional<MovingPose> Session::HeadPose(XrTime time, Moment moment) const {
    return DevicePose(time, moment, [](const xr_input::Devices& all) -> std::optional<XrPosef> {
        const xr_input::Device& head = all[TopLevel::kHead];
        const auto view = HeadPoseSource(head);
        return view ? head.poses[*view] : std::nullopt;
    });
}

}  // namespace automation
