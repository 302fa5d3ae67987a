#include "simulator/frames.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <utility>

#include "simulator/runtime.h"
#include "simulator/session.h"

namespace simulator {
namespace {

bool IsShown(const Session& session) {
    return session.state == XR_SESSION_STATE_VISIBLE || session.state == XR_SESSION_STATE_FOCUSED;
}

void RequireRunning(const Runtime& runtime, XrSession session) {
    if (!runtime.Get(session)->running) Refuse(XR_ERROR_SESSION_NOT_RUNNING);
}

// Until the clock shows the next tick, or it is over. The lock is open while it sleeps.
template <class Predicate>
XrTime PassToTick(Runtime& runtime, std::unique_lock<std::mutex>& lock, FrameLoop& frames, Predicate is_over) {
    using std::chrono::nanoseconds;
    using std::chrono::steady_clock;
    Clock& clock = runtime.clock;
    const auto is_wanted = [&] { return frames.demand > 0 && !runtime.gathers; };
    const auto may_pass = [&] { return is_over() || clock.LetsPass() || is_wanted(); };
    const auto await_leave = [&] {
        if (may_pass()) return;
        frames.is_held = true;
        if (runtime.control) runtime.control->Wake();
        runtime.frame_changed.wait(lock, may_pass);
        frames.is_held = false;
    };
    // Time may pass while it is held, and the tick with it.
    await_leave();
    const XrTime tick = frames.ClaimTick(Now());
    while (!is_over() && !clock.Reach(tick, RealNow(), is_wanted())) {
        if (clock.Flows()) {
            const steady_clock::time_point due{nanoseconds(clock.RealTimeOf(tick))};
            runtime.frame_changed.wait_until(lock, due);
        } else {
            await_leave();
        }
    }
    ++frames.released;
    return tick;
}

// Blocks until the frame before was begun and the next tick is there. The session may be ended, begun anew or gone
// afterwards.
XrTime AwaitTick(Runtime& runtime, std::unique_lock<std::mutex>& lock, XrSession handle) {
    RequireRunning(runtime, handle);
    const auto session = runtime.Get(handle);
    FrameLoop& frames = session->frames;
    const XrTime epoch = frames.epoch();
    const auto is_over = [&] { return !session->running || frames.epoch() != epoch || !runtime.IsAlive(handle); };
    runtime.frame_changed.wait(lock, [&] { return is_over() || (!frames.waited && !frames.being_waited_for); });
    XrTime tick = 0;
    if (!is_over()) {
        frames.being_waited_for = true;
        tick = PassToTick(runtime, lock, frames, is_over);
        frames.being_waited_for = false;
        runtime.frame_changed.notify_all();
    }
    // It was good when the call came.
    if (!runtime.IsAlive(handle)) Refuse(XR_ERROR_HANDLE_INVALID);
    if (is_over()) Refuse(XR_ERROR_SESSION_NOT_RUNNING);
    frames.waited = true;
    return tick;
}

void CheckEnd(const Runtime& runtime, const std::shared_ptr<Session>& session, const XrFrameEndInfo& info) {
    if (info.displayTime <= 0) Refuse(XR_ERROR_TIME_INVALID);
    if (!IsOffered(info.environmentBlendMode)) Refuse(XR_ERROR_ENVIRONMENT_BLEND_MODE_UNSUPPORTED);
    if (info.layerCount > XR_MIN_COMPOSITION_LAYERS_SUPPORTED) Refuse(XR_ERROR_LAYER_LIMIT_EXCEEDED);
    Require(info.layerCount == 0 || info.layers);
    if (session->graphics) CheckLayers(runtime, session, info);
}

}  // namespace

FrameLoop::FrameLoop(double frames_per_second) : period_(static_cast<XrDuration>(1e9 / frames_per_second)) {}

void FrameLoop::Start(XrTime now) {
    epoch_ = now;
    last_tick_ = 0;
    waited = false;
    begun = false;
}

void FrameLoop::CountWait() {
    ++calls.waits;
    syncs_each_frame_ = calls.syncs != std::exchange(syncs_before_wait_, calls.syncs);
}

XrTime FrameLoop::ClaimTick(XrTime now) {
    last_tick_ = std::max(last_tick_ + 1, (now - epoch_) / period_);
    return epoch_ + last_tick_ * period_;
}

XrResult WaitFrame(XrSession session, const XrFrameWaitInfo* info, XrFrameState* state) {
    return GuardedWithLock([&](Runtime& runtime, auto& lock) {
        const auto waiting = runtime.Get(session);
        if (info) RequireType(info, XR_TYPE_FRAME_WAIT_INFO);
        RequireType(state, XR_TYPE_FRAME_STATE);
        waiting->frames.CountWait();
        const std::uint64_t call = waiting->frames.calls.waits;
        const XrTime tick = AwaitTick(runtime, lock, session);
        waiting->frames.waited_wait = call;
        state->predictedDisplayTime = waiting->frames.DisplayTime(tick);
        state->predictedDisplayPeriod = waiting->frames.period();
        state->shouldRender = IsShown(*waiting);
        return XR_SUCCESS;
    });
}

XrResult ChangeSimulatorFrameDemandKESTX1(XrSession session, std::int32_t change) {
    return Guarded([&](Runtime& runtime) {
        FrameLoop& frames = runtime.Get(session)->frames;
        Require(change == 1 || change == 0 || (change == -1 && frames.demand > 0));
        if (change == 0) {
            const bool goes_by = runtime.clock.IsHeld() && !runtime.clock.LetsPass() && frames.demand == 0 &&
                                 !(frames.is_held && !frames.begun);
            return goes_by ? XR_TIMEOUT_EXPIRED : XR_SUCCESS;
        }
        frames.demand += change;
        if (change > 0) frames.frames_of_demand = 0;
        runtime.frame_changed.notify_all();
        return XR_SUCCESS;
    });
}

XrResult BeginFrame(XrSession session, const XrFrameBeginInfo* info) {
    return Guarded([&](Runtime& runtime) {
        Session& owner = *runtime.Get(session);
        if (info) RequireType(info, XR_TYPE_FRAME_BEGIN_INFO);
        if (!owner.running) Refuse(XR_ERROR_SESSION_NOT_RUNNING);
        if (!owner.frames.waited) Refuse(XR_ERROR_CALL_ORDER_INVALID);
        owner.frames.waited = false;
        owner.frames.begun_wait = owner.frames.waited_wait;
        const bool discarded = std::exchange(owner.frames.begun, true);
        runtime.frame_changed.notify_all();
        return discarded ? XR_FRAME_DISCARDED : XR_SUCCESS;
    });
}

XrResult EndFrame(XrSession session, const XrFrameEndInfo* info) {
    FrameReading reading;
    const XrResult result = Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(info, XR_TYPE_FRAME_END_INFO);
        if (!owner->running) Refuse(XR_ERROR_SESSION_NOT_RUNNING);
        if (!owner->frames.begun) Refuse(XR_ERROR_CALL_ORDER_INVALID);
        CheckEnd(runtime, owner, *info);
        owner->frames.begun = false;
        // Another thread may already be held for the next one.
        if (runtime.control && owner->frames.is_held) runtime.control->Wake();
        // Frames of a headless session have layers that nobody looks at.
        if (owner->graphics) {
            owner->Step();
            // The frame is good, whatever the picture of it lacks.
            WithoutThrowing([&] {
                reading = PlanReading(runtime, *owner, *info);
                return XR_SUCCESS;
            });
        }
        return XR_SUCCESS;
    });
    if (XR_FAILED(result) || reading.parts.empty()) return result;
    // Reading takes a while, and only the application's own frame has to wait for it.
    reading.Read();
    return Guarded([&](Runtime&) {
        XrResult outcome = XR_SUCCESS;
        for (auto& part : reading.parts) {
            const bool is_whole = XR_SUCCEEDED(part.failure);
            part.request->Settle(is_whole ? std::move(part.frame) : nullptr, part.failure);
            if (part.failure == XR_ERROR_SESSION_LOST) outcome = part.failure;
        }
        return outcome;
    });
}

}  // namespace simulator
