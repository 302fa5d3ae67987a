// Spaces and views: simulated devices are seen from everywhere where they are, and everything from them. A call that
// involves none of them is the runtime's alone. One that does is made below as well: the runtime checks its arguments,
// and its answer is overwritten.
#include <algorithm>
#include <vector>

#include "automation/guard.h"
#include "automation/hooks.h"
#include "automation/world.h"
#include "xr/location.h"

namespace automation {
namespace {

std::shared_ptr<Session> SessionOf(const NamedSpace& a, const NamedSpace& b) {
    if (a.object) return a.object->session;
    return b.object ? b.object->session : nullptr;
}

template <class Record>
Record* FindInChain(void* chain, XrStructureType type) {
    for (auto* link = static_cast<XrBaseOutStructure*>(chain); link; link = link->next) {
        if (link->type == type) return reinterpret_cast<Record*>(link);
    }
    return nullptr;
}

template <class Location>
void Write(const WorldLocation& located, Location& location) {
    location.locationFlags = located.flags;
    location.pose = located.moving.pose;
}

template <class Velocity>
void WriteVelocity(const WorldLocation& located, Velocity& velocity) {
    velocity.velocityFlags = located.flags == 0 ? 0 : located.velocity_flags;
    velocity.linearVelocity = located.moving.motion.linear;
    velocity.angularVelocity = located.moving.motion.angular;
}

// The frame sees its devices stand still from the first look on.
void LatchOnFrameThread(Session& session) {
    if (MomentOfThisThread() == Moment::kFrame) session.Latch();
}

using LocateSpacesFunction = PFN_xrLocateSpaces NextFunctions::*;

XrResult LocateAll(XrSession session, const XrSpacesLocateInfo* info, XrSpaceLocations* locations,
                   LocateSpacesFunction slot) {
    const auto owner = Registry::instance().Find(session);
    if (!owner) return XR_ERROR_HANDLE_INVALID;
    const auto next = owner->instance->next.*slot;
    if (!next) return XR_ERROR_FUNCTION_UNSUPPORTED;
    const XrResult result = next(session, info, locations);
    if (XR_FAILED(result) || !owner->Simulates()) return result;
    LatchOnFrameThread(*owner);
    const Moment moment = MomentOfThisThread();
    const NamedSpace base(info->baseSpace);
    const bool all = IsSimulated(*owner, base);
    const WorldLocation base_location = LocateInWorld(*owner, base, info->time, moment);
    auto* const velocities = FindInChain<XrSpaceVelocities>(locations->next, XR_TYPE_SPACE_VELOCITIES);
    for (std::uint32_t i = 0; i < info->spaceCount; ++i) {
        const NamedSpace space(info->spaces[i]);
        if (!all && !IsSimulated(*owner, space)) continue;
        const auto located = RelativeLocation(LocateInWorld(*owner, space, info->time, moment), base_location);
        Write(located, locations->locations[i]);
        if (velocities) WriteVelocity(located, velocities->velocities[i]);
    }
    return result;
}

constexpr XrViewStateFlags kViewsValid = XR_VIEW_STATE_ORIENTATION_VALID_BIT | XR_VIEW_STATE_POSITION_VALID_BIT;

void OverwriteViews(const Session& session, const XrViewLocateInfo& info, XrViewState& state, std::uint32_t count,
                    XrView* views) {
    const Moment moment = MomentOfThisThread();
    const WorldLocation base = LocateInWorld(session, NamedSpace(info.space), info.displayTime, moment);
    const Eyes eyes = LocateEyes(session, info, count, moment);
    const bool located = base.flags != 0 && (eyes.flags & kViewsValid) == kViewsValid && eyes.views.size() == count;
    state.viewStateFlags = located ? eyes.flags : 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!located) continue;
        views[i].pose = orvanic_xr::RelativePose(eyes.views[i].pose, base.moving.pose);
        views[i].fov = eyes.views[i].fov;
    }
}

}  // namespace

XrResult CreateReferenceSpace(XrSession session, const XrReferenceSpaceCreateInfo* info, XrSpace* space) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->instance->next.CreateReferenceSpace(session, info, space);
        if (XR_FAILED(result)) return result;
        GuardOwnWork([&] {
            auto made = std::make_shared<Space>();
            made->session = owner;
            made->reference = info->referenceSpaceType;
            made->offset = orvanic_xr::GoodPose(info->poseInReferenceSpace).value_or(made->offset);
            Registry::instance().Add(*space, std::move(made));
        });
        return result;
    });
}

XrResult CreateActionSpace(XrSession session, const XrActionSpaceCreateInfo* info, XrSpace* space) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->instance->next.CreateActionSpace(session, info, space);
        if (XR_FAILED(result)) return result;
        GuardOwnWork([&] {
            auto made = std::make_shared<Space>();
            made->kind = Space::Kind::kAction;
            made->session = owner;
            made->action = Registry::instance().Find(info->action);
            made->top = owner->instance->TopLevelOf(info->subactionPath);
            made->offset = orvanic_xr::GoodPose(info->poseInActionSpace).value_or(made->offset);
            const bool is_elsewhere = info->subactionPath != XR_NULL_PATH && !made->top;
            if (made->action && !is_elsewhere) Registry::instance().Add(*space, std::move(made));
        });
        return result;
    });
}

XrResult DestroySpace(XrSpace space) {
    return Guarded([&] {
        const auto known = Registry::instance().Find(space);
        const auto instance = known ? known->session->instance : Registry::instance().OnlyInstance();
        if (!instance) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = instance->next.DestroySpace(space);
        if (XR_SUCCEEDED(result)) Registry::instance().Remove(space, known);
        return result;
    });
}

XrResult LocateSpace(XrSpace space, XrSpace base, XrTime time, XrSpaceLocation* location) {
    return Guarded([&] {
        const NamedSpace target(space);
        const NamedSpace origin(base);
        const auto session = SessionOf(target, origin);
        const auto instance = session ? session->instance : Registry::instance().OnlyInstance();
        if (!instance) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = instance->next.LocateSpace(space, base, time, location);
        if (XR_FAILED(result) || !session || !session->Simulates()) return result;
        LatchOnFrameThread(*session);
        if (!IsSimulated(*session, target) && !IsSimulated(*session, origin)) return result;
        const Moment moment = MomentOfThisThread();
        const WorldLocation located = RelativeLocation(LocateInWorld(*session, target, time, moment),
                                                       LocateInWorld(*session, origin, time, moment));
        Write(located, *location);
        auto* const velocity = FindInChain<XrSpaceVelocity>(location->next, XR_TYPE_SPACE_VELOCITY);
        if (velocity) WriteVelocity(located, *velocity);
        return result;
    });
}

XrResult LocateSpaces(XrSession session, const XrSpacesLocateInfo* info, XrSpaceLocations* locations) {
    return Guarded([&] { return LocateAll(session, info, locations, &NextFunctions::LocateSpaces); });
}

XrResult LocateSpacesKHR(XrSession session, const XrSpacesLocateInfo* info, XrSpaceLocations* locations) {
    return Guarded([&] { return LocateAll(session, info, locations, &NextFunctions::LocateSpacesKHR); });
}

XrResult LocateViews(XrSession session, const XrViewLocateInfo* info, XrViewState* state, std::uint32_t capacity,
                     std::uint32_t* count, XrView* views) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->instance->next.LocateViews(session, info, state, capacity, count, views);
        if (XR_FAILED(result) || !owner->Simulates()) return result;
        LatchOnFrameThread(*owner);
        const bool concerned = owner->simulates_head || IsSimulated(*owner, NamedSpace(info->space));
        if (concerned) OverwriteViews(*owner, *info, *state, capacity == 0 ? 0 : *count, views);
        return result;
    });
}

}  // namespace automation
