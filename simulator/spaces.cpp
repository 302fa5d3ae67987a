#include "simulator/spaces.h"

#include "simulator/actions.h"
#include "simulator/extensions.h"
#include "simulator/instance.h"
#include "simulator/room.h"
#include "simulator/runtime.h"
#include "simulator/session.h"
#include "simulator/views.h"
#include "xr/location.h"

namespace simulator {
namespace {

std::vector<XrReferenceSpaceType> ReferenceSpacesOf(const Session& session) {
    std::vector<XrReferenceSpaceType> types = {XR_REFERENCE_SPACE_TYPE_VIEW, XR_REFERENCE_SPACE_TYPE_LOCAL,
                                               XR_REFERENCE_SPACE_TYPE_STAGE};
    const Instance& instance = *session.instance;
    if (instance.api_version >= kVersion11 || instance.HasExtension(kLocalFloor))
        types.push_back(XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR);
    return types;
}

void CheckReferenceSpaceType(const Session& session, XrReferenceSpaceType type) {
    const auto known = ReferenceSpacesOf(session);
    if (std::find(known.begin(), known.end(), type) == known.end()) Refuse(XR_ERROR_REFERENCE_SPACE_UNSUPPORTED);
}

XrPosef OnFloor(XrPosef pose) {
    pose.position.y = 0;
    return pose;
}

std::optional<XrPosef> ReferencePose(const Session& session, XrReferenceSpaceType type, XrTime time) {
    switch (type) {
        case XR_REFERENCE_SPACE_TYPE_VIEW:
            return HeadPose(session, time);
        case XR_REFERENCE_SPACE_TYPE_LOCAL:
            return session.local.At(time);
        case XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR:
            return OnFloor(session.local.At(time));
        default:
            return orvanic_xr::kIdentityPose;
    }
}

std::optional<XrPosef> ThingPose(const Session& session, std::size_t thing) {
    if (!session.scene.locatable[thing].IsEnabled(Now())) return std::nullopt;
    return session.scene.things[thing].pose;
}

// What the space hangs on.
std::optional<XrPosef> Origin(const Space& space, XrTime time) {
    const Session& session = *space.session;
    switch (space.kind) {
        case Space::Kind::kAction:
            return session.input.LocateAction(session.devices, *space.action, space.top);
        case Space::Kind::kThing:
            return ThingPose(session, space.thing);
        default:
            return ReferencePose(session, space.reference, time);
    }
}

// There is nothing in the simulated world that tells how fast it moves.
void LeaveVelocityUnknown(void* chain) {
    for (auto* link = static_cast<XrBaseOutStructure*>(chain); link; link = link->next) {
        if (link->type == XR_TYPE_SPACE_VELOCITY) reinterpret_cast<XrSpaceVelocity*>(link)->velocityFlags = 0;
    }
}

struct Location {
    XrSpaceLocationFlags flags = 0;
    XrPosef pose = orvanic_xr::kIdentityPose;
};

Location LocateIn(const Space& target, const Space& base, XrTime time) {
    const auto target_pose = WorldPose(target, time);
    const auto base_pose = WorldPose(base, time);
    if (!target_pose || !base_pose) return {};
    return {orvanic_xr::kPoseValidAndTracked, RelativePose(*target_pose, *base_pose)};
}

// Throws when their count is not that of the locations.
void LeaveVelocitiesUnknown(const XrSpaceLocations& locations) {
    for (auto* link = static_cast<XrBaseOutStructure*>(locations.next); link; link = link->next) {
        if (link->type != XR_TYPE_SPACE_VELOCITIES) continue;
        const auto& velocities = *reinterpret_cast<const XrSpaceVelocities*>(link);
        Require(velocities.velocityCount == locations.locationCount && velocities.velocities);
        for (std::uint32_t i = 0; i < velocities.velocityCount; ++i) velocities.velocities[i].velocityFlags = 0;
    }
}

}  // namespace

XrPosef CheckedPose(const XrPosef& pose) {
    const auto good = orvanic_xr::GoodPose(pose);
    if (!good) Refuse(XR_ERROR_POSE_INVALID);
    return *good;
}

std::optional<XrPosef> WorldPose(const Space& space, XrTime time) {
    const auto origin = Origin(space, time);
    if (!origin) return std::nullopt;
    return orvanic_xr::Compose(*origin, space.offset);
}

XrResult EnumerateReferenceSpaces(XrSession session, std::uint32_t capacity, std::uint32_t* count,
                                  XrReferenceSpaceType* spaces) {
    return Guarded(
        [&](Runtime& runtime) { return WriteList(ReferenceSpacesOf(*runtime.Get(session)), capacity, count, spaces); });
}

XrResult CreateReferenceSpace(XrSession session, const XrReferenceSpaceCreateInfo* info, XrSpace* space) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(info, XR_TYPE_REFERENCE_SPACE_CREATE_INFO);
        Require(space);
        CheckReferenceSpaceType(*owner, info->referenceSpaceType);
        auto created = std::make_shared<Space>();
        created->session = owner;
        created->reference = info->referenceSpaceType;
        created->offset = CheckedPose(info->poseInReferenceSpace);
        *space = runtime.Add<XrSpace>(std::move(created));
        return XR_SUCCESS;
    });
}

XrResult GetReferenceSpaceBoundsRect(XrSession session, XrReferenceSpaceType type, XrExtent2Df* bounds) {
    return Guarded([&](Runtime& runtime) {
        CheckReferenceSpaceType(*runtime.Get(session), type);
        Require(bounds);
        const bool has_bounds = type == XR_REFERENCE_SPACE_TYPE_STAGE;
        *bounds = has_bounds ? XrExtent2Df{kRoomWidth, kRoomDepth} : XrExtent2Df{0.0f, 0.0f};
        return has_bounds ? XR_SUCCESS : XR_SPACE_BOUNDS_UNAVAILABLE;
    });
}

XrResult CreateActionSpace(XrSession session, const XrActionSpaceCreateInfo* info, XrSpace* space) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(info, XR_TYPE_ACTION_SPACE_CREATE_INFO);
        Require(space);
        auto created = std::make_shared<Space>();
        created->kind = Space::Kind::kAction;
        created->session = owner;
        created->action = runtime.Get(info->action);
        Require(created->action->Set().instance == owner->instance.get());
        if (created->action->type != XR_ACTION_TYPE_POSE_INPUT) Refuse(XR_ERROR_ACTION_TYPE_MISMATCH);
        created->top = created->action->CheckedSubaction(*owner->instance, info->subactionPath);
        created->offset = CheckedPose(info->poseInActionSpace);
        *space = runtime.Add<XrSpace>(std::move(created));
        return XR_SUCCESS;
    });
}

XrResult LocateSpace(XrSpace space, XrSpace base, XrTime time, XrSpaceLocation* location) {
    return Guarded([&](Runtime& runtime) {
        const auto target = runtime.Get(space);
        const auto seen_from = runtime.Get(base);
        RequireType(location, XR_TYPE_SPACE_LOCATION);
        Require(target->session == seen_from->session);
        if (time <= 0) Refuse(XR_ERROR_TIME_INVALID);
        const Location located = LocateIn(*target, *seen_from, time);
        location->locationFlags = located.flags;
        location->pose = located.pose;
        LeaveVelocityUnknown(location->next);
        return XR_SUCCESS;
    });
}

XrResult LocateSpaces(XrSession session, const XrSpacesLocateInfo* info, XrSpaceLocations* locations) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(info, XR_TYPE_SPACES_LOCATE_INFO);
        RequireType(locations, XR_TYPE_SPACE_LOCATIONS);
        Require(info->spaceCount > 0 && info->spaces);
        Require(locations->locationCount == info->spaceCount && locations->locations);
        const auto base = runtime.Get(info->baseSpace);
        Require(base->session == owner);
        std::vector<std::shared_ptr<Space>> targets;
        for (std::uint32_t i = 0; i < info->spaceCount; ++i) {
            targets.push_back(runtime.Get(info->spaces[i]));
            Require(targets.back()->session == owner);
        }
        if (info->time <= 0) Refuse(XR_ERROR_TIME_INVALID);
        LeaveVelocitiesUnknown(*locations);
        for (std::size_t i = 0; i < targets.size(); ++i) {
            const Location located = LocateIn(*targets[i], *base, info->time);
            locations->locations[i] = {located.flags, located.pose};
        }
        return XR_SUCCESS;
    });
}

XrResult DestroySpace(XrSpace space) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(space);
        runtime.Remove<Space>(space);
        return XR_SUCCESS;
    });
}

}  // namespace simulator
