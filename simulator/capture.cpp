#include "simulator/capture.h"

#include <chrono>
#include <mutex>
#include <optional>

#include "simulator/instance.h"
#include "simulator/renderer/composition.h"
#include "simulator/renderer/picture.h"
#include "simulator/runtime.h"
#include "simulator/session.h"
#include "simulator/world.h"

namespace simulator {

// Its light takes a while to work out: the first picture does it, and others wait for that.
struct RoomToDraw {
    const LitRoom& Lit(const std::vector<Thing>& things) {
        std::call_once(lit, [&] { room.emplace(things); });
        return *room;
    }

    std::once_flag lit;
    std::optional<LitRoom> room;
};

namespace {

// What has to be known for one call, taken with the mutex locked.
struct Shot {
    std::size_t eye = 0;
    WorldView world;
    std::shared_ptr<RoomToDraw> room;
    Settings::EyeSize size = {};
    // Null in a headless session; it may end at any time.
    std::shared_ptr<Session> rendering;
    CallCounts calls;
    std::shared_ptr<const SubmittedFrame> frame;
};

// What the application shows, where it shows anything. The runtime's mutex is open while this waits.
std::shared_ptr<const SubmittedFrame> FrameOf(const Shot& shot) {
    std::unique_lock lock(Runtime::instance().mutex);
    if (!shot.rendering->running) Refuse(XR_ERROR_SESSION_NOT_RUNNING);
    const Clock& clock = Runtime::instance().clock;
    const auto held = shot.rendering->held_frame[shot.eye];
    if (held && clock.IsHeld() && !clock.LetsPass() && shot.rendering->frames.demand == 0) {
        // It may still be read.
        held->settled.wait_for(lock, std::chrono::seconds(1), [&] { return held->IsSettled(); });
        if (held->frame) return held->frame;
    }
    return shot.rendering->requests.Await(lock, shot.eye, shot.rendering->frames, shot.calls);
}

std::shared_ptr<Session> RunningSession(const Runtime& runtime, XrSession handle) {
    auto session = runtime.Get(handle);
    if (!session->running) Refuse(XR_ERROR_SESSION_NOT_RUNNING);
    return session;
}

Shot Take(const std::shared_ptr<Session>& taken, SimulatorCompositorCaptureInfo& info) {
    Session& session = *taken;
    Shot shot;
    shot.eye = session.capture.rules.Take(info);
    const Settings& settings = session.instance->settings;
    *info.width_output = settings.eye_size.width;
    *info.height_output = settings.eye_size.height;
    shot.world = LookAtWorld(session, session.frames.LatestDisplayTime(Now()));
    shot.room = session.capture.room;
    shot.size = settings.eye_size;
    if (session.graphics) shot.rendering = taken;
    shot.calls = session.frames.calls;
    return shot;
}

}  // namespace

XrResult StartSimulatorCompositorOutputCaptureKESTX1(XrSession session, std::uint32_t eyes) {
    return Guarded([&](Runtime& runtime) {
        Capture& capture = RunningSession(runtime, session)->capture;
        if (!capture.room) capture.room = std::make_shared<RoomToDraw>();
        capture.rules.Start(eyes);
        return XR_SUCCESS;
    });
}

XrResult StopSimulatorCompositorOutputCaptureKESTX1(XrSession session) {
    return Guarded([&](Runtime& runtime) {
        RunningSession(runtime, session)->capture.rules.Stop();
        return XR_SUCCESS;
    });
}

XrResult CaptureSimulatorCompositorOutputKESTX1(XrSession session, SimulatorCompositorCaptureInfo* info) {
    Shot shot;
    const XrResult result = Guarded([&](Runtime& runtime) {
        const auto captured = RunningSession(runtime, session);
        CaptureRules::Check(info);
        shot = Take(captured, *info);
        return XR_SUCCESS;
    });
    if (XR_FAILED(result) || !info->pixels) return result;
    return WithoutThrowing([&] {
        if (shot.rendering) shot.frame = FrameOf(shot);
        if (shot.frame) shot.world = shot.frame->world;
        const bool room_is_seen = !shot.frame || shot.frame->mode != XR_ENVIRONMENT_BLEND_MODE_OPAQUE;
        const auto [width, height] = shot.size;
        if (room_is_seen) {
            DrawPicture(shot.world, shot.room->Lit(shot.world.things), shot.eye, width, height, info->pixels);
        }
        if (shot.frame) Compose(shot.frame->layers, shot.frame->eye, shot.frame->mode, width, height, info->pixels);
        return XR_SUCCESS;
    });
}

}  // namespace simulator
