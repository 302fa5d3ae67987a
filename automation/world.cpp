#include "automation/world.h"

#include "xr/location.h"

namespace automation {
namespace {

using orvanic_xr::kIdentityPose;

// Whether the hand, or the one of several, that feeds the action is simulated.
bool IsSimulatedAction(const Session& session, const Space& space) {
    if (space.top) return session.Simulates(*space.top);
    const std::lock_guard lock(session.mutex);
    // The real one counts where no simulated one is there.
    const TopLevels bound = space.action->suggested_on;
    const TopLevels simulated = session.simulated;
    return session.input.StateOf(*space.action, std::nullopt).active || (bound != 0 && (bound & ~simulated) == 0);
}

constexpr XrSpaceVelocityFlags kVelocityValid =
    XR_SPACE_VELOCITY_LINEAR_VALID_BIT | XR_SPACE_VELOCITY_ANGULAR_VALID_BIT;

// Such spaces rest, also where the runtime does not say so.
bool Rests(const NamedSpace& space) {
    if (!space.object || space.object->kind != Space::Kind::kReference) return false;
    const XrReferenceSpaceType type = space.object->reference;
    return type == XR_REFERENCE_SPACE_TYPE_LOCAL || type == XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR ||
           type == XR_REFERENCE_SPACE_TYPE_STAGE;
}

WorldLocation Simulated(const std::optional<MovingPose>& moving, const XrPosef& offset) {
    if (!moving) return {};
    return {WithOffset(*moving, offset), orvanic_xr::kPoseValidAndTracked, kVelocityValid};
}

std::optional<MovingPose> ActionPose(const Session& session, const Space& space, XrTime time, Moment moment) {
    return session.DevicePose(time, moment, [&](const xr_input::Devices& devices) {
        return session.input.LocateAction(devices, *space.action, space.top);
    });
}

WorldLocation AskRuntime(const Session& session, XrSpace space, XrTime time) {
    XrSpace world = XR_NULL_HANDLE;
    {
        const std::lock_guard lock(session.mutex);
        world = session.world_space;
    }
    XrSpaceVelocity velocity = {XR_TYPE_SPACE_VELOCITY, nullptr, 0, {}, {}};
    XrSpaceLocation location = {XR_TYPE_SPACE_LOCATION, &velocity, 0, kIdentityPose};
    if (time <= 0 || world == XR_NULL_HANDLE) return {};
    if (XR_FAILED(session.instance->next.LocateSpace(space, world, time, &location))) return {};
    if (!orvanic_xr::HasValidPose(location.locationFlags)) return {};
    WorldLocation located = {{location.pose, {}}, location.locationFlags, velocity.velocityFlags};
    // What is not told counts as rest.
    if ((velocity.velocityFlags & XR_SPACE_VELOCITY_LINEAR_VALID_BIT) != 0) {
        located.moving.motion.linear = velocity.linearVelocity;
    }
    if ((velocity.velocityFlags & XR_SPACE_VELOCITY_ANGULAR_VALID_BIT) != 0) {
        located.moving.motion.angular = velocity.angularVelocity;
    }
    return located;
}

}  // namespace

bool IsSimulated(const Session& session, const NamedSpace& space) {
    if (!space.object || space.object->session.get() != &session) return false;
    if (space.object->kind == Space::Kind::kAction) return IsSimulatedAction(session, *space.object);
    return space.object->reference == XR_REFERENCE_SPACE_TYPE_VIEW && session.simulates_head;
}

WorldLocation LocateInWorld(const Session& session, const NamedSpace& space, XrTime time, Moment moment) {
    if (IsSimulated(session, space)) {
        const Space& object = *space.object;
        const bool is_head = object.kind == Space::Kind::kReference;
        return Simulated(is_head ? session.HeadPose(time, moment) : ActionPose(session, object, time, moment),
                         object.offset);
    }
    const bool is_world =
        space.object && space.object->kind == Space::Kind::kReference && space.object->reference == session.world_type;
    // Known without a question, also before the runtime tracks anything.
    if (is_world) return Simulated(MovingPose{kIdentityPose, {}}, space.object->offset);
    WorldLocation located = AskRuntime(session, space.handle, time);
    if (Rests(space)) located.velocity_flags = kVelocityValid;
    return located;
}

WorldLocation RelativeLocation(const WorldLocation& target, const WorldLocation& base) {
    if (target.flags == 0 || base.flags == 0) return {};
    return {RelativeMotion(target.moving, base.moving), target.flags & base.flags,
            target.velocity_flags & base.velocity_flags};
}

Eyes LocateEyes(const Session& session, const XrViewLocateInfo& asked, std::uint32_t count, Moment moment) {
    const bool has_simulated_head = session.simulates_head;
    XrViewLocateInfo info = asked;
    {
        const std::lock_guard lock(session.mutex);
        info.space = has_simulated_head ? session.view_space : session.world_space;
    }
    if (info.space == XR_NULL_HANDLE) return {};
    Eyes eyes;
    XrViewState state = {XR_TYPE_VIEW_STATE, nullptr, 0};
    eyes.views.assign(count, {XR_TYPE_VIEW, nullptr, orvanic_xr::kIdentityPose, {}});
    const XrResult result =
        session.instance->next.LocateViews(session.handle, &info, &state, count, &count, eyes.views.data());
    if (XR_FAILED(result)) return {};
    eyes.views.resize(count);
    eyes.flags = state.viewStateFlags;
    if (!has_simulated_head) return eyes;
    const auto head = session.HeadPose(asked.displayTime, moment);
    if (!head) eyes.flags = 0;
    for (XrView& view : eyes.views) {
        if (head) view.pose = orvanic_xr::Compose(head->pose, view.pose);
    }
    return eyes;
}

}  // namespace automation
