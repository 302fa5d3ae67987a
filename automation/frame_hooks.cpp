// Frames: from here the layer knows which time is the frame's, and what it shows goes to where the real head is.
#include <algorithm>
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

std::optional<XrPosef> PlaceInWorld(const Session& session, const NamedSpace& space, XrTime time) {
    const WorldLocation located = LocateInWorld(session, space, time, Moment::kFrame);
    if (located.flags == 0) return std::nullopt;
    return located.moving.pose;
}

std::optional<SubmittedLayers> Moved(const Session& session, const XrFrameEndInfo& info) {
    const OwnSpaces spaces(session);
    if (spaces.world == XR_NULL_HANDLE) return std::nullopt;
    const auto move = FromSimulatedToReal(session, spaces, info.displayTime);
    if (!move) return std::nullopt;
    const auto lookup = [&](XrSpace space) -> std::optional<XrPosef> {
        const NamedSpace named(space);
        const bool is_view = named.object && named.object->kind == Space::Kind::kReference &&
                             named.object->reference == XR_REFERENCE_SPACE_TYPE_VIEW;
        return is_view ? std::nullopt : PlaceInWorld(session, named, info.displayTime);
    };
    return SubmittedLayers(info, lookup, *move, spaces.world);
}

bool HasProjection(const XrFrameEndInfo& info) {
    for (std::uint32_t i = 0; info.layers && i < info.layerCount; ++i) {
        if (info.layers[i] && info.layers[i]->type == XR_TYPE_COMPOSITION_LAYER_PROJECTION) return true;
    }
    return false;
}

// Where the frame's eyes are. Of a real head the runtime says something new at every look: there the application's own
// projection knows better for which eyes it was drawn.
std::optional<EyeViews> EyesOfFrame(const Session& session, const XrFrameEndInfo& end) {
    if (!session.simulates_head && HasProjection(end)) return std::nullopt;
    // Enough for every kind: of four, the first two are the eyes', and a single one is both's.
    constexpr std::uint32_t kMostViews = 4;
    const XrViewLocateInfo info = {XR_TYPE_VIEW_LOCATE_INFO, nullptr, session.view_configuration, end.displayTime,
                                   XR_NULL_HANDLE};
    const Eyes eyes = LocateEyes(session, info, kMostViews, Moment::kFrame);
    if (eyes.flags == 0 || eyes.views.empty()) return std::nullopt;
    const XrView& left = eyes.views[0];
    const XrView& right = eyes.views[std::min<std::size_t>(1, eyes.views.size() - 1)];
    return EyeViews{simulator::EyeView{left.pose, left.fov}, simulator::EyeView{right.pose, right.fov}};
}

EndingFrame TakePictures(Session& session, const XrFrameEndInfo& info) {
    const auto locate = [&](XrSpace space) { return PlaceInWorld(session, NamedSpace(space), info.displayTime); };
    return session.pictures->BeforeEnd(info, locate, EyesOfFrame(session, info));
}

// Whatever fails here, the frame ends.
XrResult EndAnyhow(const Session& session, const XrFrameEndInfo* info) {
    std::optional<SubmittedLayers> moved;
    if (info && info->layerCount > 0 && session.simulates_head) GuardOwnWork([&] { moved = Moved(session, *info); });
    return session.instance->next.EndFrame(session.handle, moved ? &moved->info() : info);
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
        if (XR_FAILED(result)) return result;
        // In this order: who asks for a picture in between gets the next frame, and not one with older poses.
        if (owner->pictures) owner->pictures->FrameBegan();
        if (owner->Simulates()) owner->Latch();
        return result;
    });
}

XrResult EndFrame(XrSession session, const XrFrameEndInfo* info) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        NoteFrameThread();
        if (!owner->pictures || !owner->pictures->IsAsked() || !info) return EndAnyhow(*owner, info);
        EndingFrame ending;
        GuardOwnWork([&] { ending = TakePictures(*owner, *info); });
        const XrResult result = EndAnyhow(*owner, info);
        owner->pictures->AfterEnd(ending, result);
        return result;
    });
}

}  // namespace automation
