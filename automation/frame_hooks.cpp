// Frames: from here the layer knows which time is the frame's, and what it shows goes to where the real head is.
#include <optional>

#include "automation/guard.h"
#include "automation/hooks.h"
#include "automation/session.h"
#include "automation/submitted_layers.h"
#include "automation/world.h"
#include "xr/location.h"

namespace automation {
namespace {

struct OwnSpaces {
    explicit OwnSpaces(const Session& session) {
        const std::lock_guard lock(session.mutex);
        world = session.world_space;
        view = session.view_space;
    }

    XrSpace world = XR_NULL_HANDLE;
    XrSpace view = XR_NULL_HANDLE;
};

// In world coordinates, from where the simulated head sees things to where the real one would see them the same way.
// Nothing while the real one is nowhere.
std::optional<XrPosef> FromSimulatedToReal(const Session& session, const OwnSpaces& spaces, XrTime time) {
    const auto simulated = session.HeadPose(time, Moment::kFrame);
    // The runtime's own answer: its view is the real head.
    XrSpaceLocation real = {XR_TYPE_SPACE_LOCATION, nullptr, 0, orvanic_xr::kIdentityPose};
    const XrResult result = session.instance->next.LocateSpace(spaces.view, spaces.world, time, &real);
    if (!simulated || XR_FAILED(result) || !orvanic_xr::HasValidPose(real.locationFlags)) return std::nullopt;
    const XrPosef seen_from_simulated = orvanic_xr::RelativePose(orvanic_xr::kIdentityPose, simulated->pose);
    return orvanic_xr::Compose(real.pose, seen_from_simulated);
}

XrResult EndMoved(const Session& session, const XrFrameEndInfo& info) {
    const OwnSpaces spaces(session);
    const auto move = FromSimulatedToReal(session, spaces, info.displayTime);
    if (!move) return session.instance->next.EndFrame(session.handle, &info);
    const auto lookup = [&](XrSpace space) -> std::optional<XrPosef> {
        const NamedSpace named(space);
        const bool is_view = named.object && named.object->kind == Space::Kind::kReference &&
                             named.object->reference == XR_REFERENCE_SPACE_TYPE_VIEW;
        if (is_view) return std::nullopt;
        const WorldLocation located = LocateInWorld(session, named, info.displayTime, Moment::kFrame);
        if (located.flags == 0) return std::nullopt;
        return located.moving.pose;
    };
    const SubmittedLayers moved(info, lookup, *move, spaces.world);
    return session.instance->next.EndFrame(session.handle, &moved.info());
}

}  // namespace

XrResult WaitFrame(XrSession session, const XrFrameWaitInfo* info, XrFrameState* state) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->instance->next.WaitFrame(session, info, state);
        if (XR_FAILED(result)) return result;
        NoteFrameThread();
        owner->waited = state->predictedDisplayTime;
        return result;
    });
}

XrResult BeginFrame(XrSession session, const XrFrameBeginInfo* info) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->instance->next.BeginFrame(session, info);
        NoteFrameThread();
        if (XR_SUCCEEDED(result) && owner->Simulates()) owner->Latch();
        return result;
    });
}

XrResult EndFrame(XrSession session, const XrFrameEndInfo* info) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        NoteFrameThread();
        const bool is_moved = info && info->layerCount > 0 && owner->simulates_head;
        return is_moved ? EndMoved(*owner, *info) : owner->instance->next.EndFrame(session, info);
    });
}

}  // namespace automation
