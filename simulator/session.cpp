#include "simulator/session.h"

#include <cstddef>
#include <cstring>
#include <utility>

#include "simulator/extensions.h"
#include "simulator/hand_tracking.h"
#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/spaces.h"
#include "simulator/swapchains.h"

namespace simulator {
namespace {

constexpr std::size_t kMaxSessions = 4;

// Those that name the session, which does so at the same place in all kinds.
void ForgetEvents(Instance& instance, XrSession session) {
    instance.events.DropIf([session](const XrEventDataBuffer& buffer) {
        XrEventDataInteractionProfileChanged event;
        std::memcpy(&event, &buffer, sizeof(event));
        const bool names_session = event.type == XR_TYPE_EVENT_DATA_SESSION_STATE_CHANGED ||
                                   event.type == XR_TYPE_EVENT_DATA_INTERACTION_PROFILE_CHANGED ||
                                   event.type == XR_TYPE_EVENT_DATA_REFERENCE_SPACE_CHANGE_PENDING;
        return names_session && event.session == session;
    });
}
static_assert(offsetof(XrEventDataInteractionProfileChanged, session) ==
                  offsetof(XrEventDataSessionStateChanged, session) &&
              offsetof(XrEventDataInteractionProfileChanged, session) ==
                  offsetof(XrEventDataReferenceSpaceChangePending, session));

GraphicsExtensions EnabledGraphics(const Instance& instance) {
    return {.vulkan = instance.HasExtension(kVulkanEnable) || instance.HasExtension(kVulkanEnable2),
            .gl = instance.HasExtension(kOpenGlEnable),
            .gl_es = instance.HasExtension(kOpenGlEsEnable),
            .egl = instance.HasExtension(kEglEnable)};
}

}  // namespace

void Session::Enter(XrSessionState next) {
    state = next;
    instance->events.Push(
        XrEventDataSessionStateChanged{XR_TYPE_EVENT_DATA_SESSION_STATE_CHANGED, nullptr, handle, next, Now()});
}

void Session::Step() {
    switch (state) {
        case XR_SESSION_STATE_READY:
            return Enter(XR_SESSION_STATE_SYNCHRONIZED);
        case XR_SESSION_STATE_SYNCHRONIZED:
            if (exit_requested) return Enter(XR_SESSION_STATE_STOPPING);
            if (is_worn) Enter(XR_SESSION_STATE_VISIBLE);
            return;
        case XR_SESSION_STATE_VISIBLE:
            if (exit_requested || !is_worn) return Enter(XR_SESSION_STATE_SYNCHRONIZED);
            if (has_focus) Enter(XR_SESSION_STATE_FOCUSED);
            return;
        case XR_SESSION_STATE_FOCUSED:
            if (exit_requested || !is_worn || !has_focus) Enter(XR_SESSION_STATE_VISIBLE);
            return;
        default:
            return;
    }
}

void Session::Settle() {
    for (XrSessionState before = XR_SESSION_STATE_UNKNOWN; before != state;) {
        before = state;
        Step();
    }
}

void Session::Stop() {
    running = false;
    const Runtime& runtime = Runtime::instance();
    if (runtime.control) runtime.control->Wake();
    capture.rules = {};
    // No action is active until the first sync of the next run.
    input.states.clear();
    requests.Abandon();
    held_frame = {};
}

Remains Session::Close(Runtime& runtime) {
    Remains remains;
    Stop();
    runtime.handles.RemoveIf<HandTracker>([&](const HandTracker& hand) { return hand.session.get() == this; });
    runtime.handles.RemoveIf<Swapchain>([&](Swapchain& swapchain) {
        if (swapchain.session.get() != this) return false;
        remains.images.push_back(std::move(swapchain.images));
        return true;
    });
    remains.graphics = std::move(graphics);
    return remains;
}

XrResult CreateSession(XrInstance instance, const XrSessionCreateInfo* info, XrSession* session) {
    std::shared_ptr<Session> created;
    return GuardedWithLock([&](Runtime& runtime, auto& lock) {
        const auto owner = runtime.Get(instance);
        RequireType(info, XR_TYPE_SESSION_CREATE_INFO);
        Require(session && info->createFlags == 0);
        owner->CheckSystem(info->systemId);
        created = std::make_shared<Session>();
        lock.unlock();
        created->graphics = BindGraphics(info->next, EnabledGraphics(*owner), owner->graphics);
        lock.lock();
        if (!runtime.IsAlive(instance)) Refuse(XR_ERROR_HANDLE_INVALID);
        if (!created->graphics && !owner->HasExtension(kHeadless)) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
        const auto of_owner = [&](const Session& other) { return other.instance == owner; };
        if (runtime.handles.CountIf<Session>(of_owner) >= kMaxSessions) Refuse(XR_ERROR_LIMIT_REACHED);
        created->instance = owner;
        created->frames = FrameLoop(owner->settings.frames_per_second);
        created->head = HeadSway(owner->settings.seed);
        created->scene = Scene(owner->settings.scene);
        created->handle = runtime.Add<XrSession>(created);
        created->Enter(XR_SESSION_STATE_IDLE);
        created->Enter(XR_SESSION_STATE_READY);
        *session = created->handle;
        return XR_SUCCESS;
    });
}

XrResult DestroySession(XrSession session) {
    Remains remains;
    return Guarded([&](Runtime& runtime) {
        const auto ended = runtime.Get(session);
        remains = ended->Close(runtime);
        ForgetEvents(*ended->instance, session);
        runtime.handles.RemoveIf<Space>([&](const Space& space) { return space.session == ended; });
        runtime.Remove<Session>(session);
        runtime.frame_changed.notify_all();
        return XR_SUCCESS;
    });
}

XrResult BeginSession(XrSession session, const XrSessionBeginInfo* info) {
    return Guarded([&](Runtime& runtime) {
        Session& begun = *runtime.Get(session);
        RequireType(info, XR_TYPE_SESSION_BEGIN_INFO);
        if (begun.running) Refuse(XR_ERROR_SESSION_RUNNING);
        if (begun.state != XR_SESSION_STATE_READY) Refuse(XR_ERROR_SESSION_NOT_READY);
        // That of a headless session is ignored, for it has no views to show.
        const bool is_shown = info->primaryViewConfigurationType == XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO;
        if (begun.graphics && !is_shown) Refuse(XR_ERROR_VIEW_CONFIGURATION_TYPE_UNSUPPORTED);
        begun.running = true;
        begun.frames.Start(Now());
        begun.head.Start(begun.frames.epoch());
        if (!begun.graphics) begun.Settle();
        return XR_SUCCESS;
    });
}

XrResult EndSession(XrSession session) {
    return Guarded([&](Runtime& runtime) {
        Session& ended = *runtime.Get(session);
        if (!ended.running) Refuse(XR_ERROR_SESSION_NOT_RUNNING);
        if (ended.state != XR_SESSION_STATE_STOPPING) Refuse(XR_ERROR_SESSION_NOT_STOPPING);
        ended.Stop();
        ended.Enter(XR_SESSION_STATE_IDLE);
        ended.Enter(ended.exit_requested ? XR_SESSION_STATE_EXITING : XR_SESSION_STATE_READY);
        runtime.frame_changed.notify_all();
        return XR_SUCCESS;
    });
}

XrResult RequestExitSession(XrSession session) {
    return Guarded([&](Runtime& runtime) {
        Session& asked = *runtime.Get(session);
        if (!asked.running) Refuse(XR_ERROR_SESSION_NOT_RUNNING);
        if (asked.exit_requested) return XR_SUCCESS;
        asked.exit_requested = true;
        if (!asked.graphics) asked.Settle();
        return XR_SUCCESS;
    });
}

}  // namespace simulator
