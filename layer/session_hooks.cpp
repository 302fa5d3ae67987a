#include "layer/session_hooks.h"

#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>

#include "capture/screen_capture_manager.h"
#include "context/context_manager.h"
#include "context/session_context.h"
#include "diagnostics/clock.h"
#include "diagnostics/telemetry.h"
#include "external/external_tool_manager.h"
#include "layer/action_maps.h"
#include "layer/binding_mirror.h"
#include "layer/hook_support.h"
#include "scene/scene_context.h"
#include "tools/simulation/pose_animation_manager.h"
#include "xr/enum_names.h"
#include "xr/handles.h"
#include "xr/spatial_entity_ks.h"

namespace orvanic_xr {

std::atomic<std::thread::id> mainThreadId;

namespace {

constexpr std::uint32_t kAtPollEvent = 1;

void CacheSystem(XrInstance instance, XrSystemId system_id) {
    const auto get_system_properties = DispatchHolder::instance().Slot(&NextDispatchTable::GetSystemProperties);
    if (!get_system_properties) {
        LogWarning("xrGetSystemProperties function is not available");
        return;
    }
    XrSystemProperties properties{};
    properties.type = XR_TYPE_SYSTEM_PROPERTIES;
    const XrResult result = get_system_properties(instance, system_id, &properties);
    if (XR_FAILED(result)) {
        LogError("xrGetSystemProperties failed with result: ", result);
        return;
    }
    SystemState state;
    state.valid = true;
    state.systemId = system_id;
    state.vendorId = properties.vendorId;
    state.systemName.assign(properties.systemName, strnlen(properties.systemName, sizeof properties.systemName));
    state.graphicsProperties = properties.graphicsProperties;
    state.trackingProperties = properties.trackingProperties;
    state.timestamp = SystemNanoseconds();
    ContextManager::instance().setSystemState(state);
    LogInfo("Cached system properties: systemId=", state.systemId, ", vendorId=", state.vendorId,
            ", systemName=", state.systemName);
}

void NoteCreatedSession(XrInstance instance, const XrSessionCreateInfo* create_info, XrSession session) {
    SessionState state;
    state.valid = true;
    state.session = session;
    state.state = XR_SESSION_STATE_IDLE;
    state.timestamp = SystemNanoseconds();
    ContextManager::instance().updateSessionState(state);
    LogInfo("OrvanicLayerXrCreateSession succeeded, cached session handle: ", HandleValue(session), ", state: IDLE");
    Telemetry::instance().session_created();
    if (create_info && create_info->systemId != XR_NULL_SYSTEM_ID) CacheSystem(instance, create_info->systemId);
    ContextManager::instance().createSessionContext(session);
    ContextManager::instance().createSceneContext(session);
}

void NoteBegunSession(XrSession session) {
    const std::thread::id thread = std::this_thread::get_id();
    mainThreadId = thread;
    LogInfo("Captured main thread ID for deferred callbacks: ", std::hash<std::thread::id>{}(thread));
    ContextManager::instance().updateSessionIfCurrent(session, std::nullopt, SystemNanoseconds());
    LogInfo("OrvanicLayerXrBeginSession succeeded, cached session handle: ", HandleValue(session));
}

void StartCapture(XrSession session) {
    ScreenCaptureManager::instance().initialize();
    if (const auto backend = ScreenCaptureManager::instance().backend()) backend->start(session);
}

void StopCapture() {
    if (const auto backend = ScreenCaptureManager::instance().backend()) backend->stop();
}

// An application may destroy a session that it did not end.
void StopCaptureOf(XrSession session) {
    const auto backend = ScreenCaptureManager::instance().backend();
    if (backend && backend->session() == session) backend->stop();
}

void DropSession(XrSession session) {
    // First, so that a tool that comes in between doesn't start what nobody would end.
    ContextManager::instance().closeSession(session);
    PoseAnimationManager::instance().CancelAll("the end of the session");
    Telemetry::instance().session_ended();
    StopCaptureOf(session);
    // The spaces and the action set are destroyed here, while the runtime still has the session.
    ContextManager::instance().removeSceneContext(session);
    ContextManager::instance().removeSessionContext(session);
    ActionMaps::instance().Clear();
    BindingMirror::instance().NoteSessionEnd();
}

void NoteSessionState(const XrEventDataSessionStateChanged& event) {
    // By our own clock; the event's time is the runtime's.
    if (!ContextManager::instance().updateSessionIfCurrent(event.session, event.state, SystemNanoseconds())) return;
    LogInfo("Session state changed to: ", session_state_name(event.state), " (", event.state, ")");
}

void PassToScene(const XrEventDataBuffer& event) {
    const SessionState current = ContextManager::instance().getSessionState();
    if (!current.valid || current.session == XR_NULL_HANDLE) return;
    const auto scene = ContextManager::instance().getSceneContext(current.session);
    if (scene) scene->on_event(event);
}

void LookAtEvent(const XrEventDataBuffer& event) {
    switch (event.type) {
        case XR_TYPE_EVENT_DATA_SESSION_STATE_CHANGED:
            NoteSessionState(reinterpret_cast<const XrEventDataSessionStateChanged&>(event));
            break;
        case XR_TYPE_EVENT_DATA_SPACE_QUERY_RESULTS_AVAILABLE_KS:
        case XR_TYPE_EVENT_DATA_SPACE_SET_STATUS_COMPLETE_KS:
            PassToScene(event);
            break;
        default:
            break;
    }
}

}  // namespace

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrCreateSession(XrInstance instance, const XrSessionCreateInfo* createInfo,
                                                           XrSession* session) {
    return GuardHook({"OrvanicLayerXrCreateSession"}, [&] {
        LogInfo("OrvanicLayerXrCreateSession called");
        const auto create_session = NextFunction(&NextDispatchTable::CreateSession, "xrCreateSession");
        if (!create_session) return XR_ERROR_RUNTIME_FAILURE;
        const XrResult result = create_session(instance, createInfo, session);
        if (XR_FAILED(result)) {
            LogError("OrvanicLayerXrCreateSession failed");
            return result;
        }
        if (session) NoteCreatedSession(instance, createInfo, *session);
        return result;
    });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrBeginSession(XrSession session, const XrSessionBeginInfo* beginInfo) {
    return GuardHook({"OrvanicLayerXrBeginSession"}, [&] {
        LogInfo("OrvanicLayerXrBeginSession called");
        const auto begin_session = NextFunction(&NextDispatchTable::BeginSession, "xrBeginSession");
        if (!begin_session) return XR_ERROR_RUNTIME_FAILURE;
        const XrResult result = begin_session(session, beginInfo);
        if (XR_FAILED(result)) {
            LogError("OrvanicLayerXrBeginSession failed");
        } else {
            NoteBegunSession(session);
        }
        StartCapture(session);  // on purpose also for a session that did not begin
        return result;
    });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrEndSession(XrSession session) {
    return GuardHook({"OrvanicLayerXrEndSession"}, [&] {
        LogInfo("OrvanicLayerXrEndSession called");
        // Before the forward, so that the backend releases what it holds while the session still runs.
        if (DispatchHolder::instance().has_table()) StopCapture();
        const auto end_session = NextFunction(&NextDispatchTable::EndSession, "xrEndSession");
        if (!end_session) return XR_ERROR_RUNTIME_FAILURE;
        const XrResult result = end_session(session);
        if (XR_FAILED(result)) {
            LogError("OrvanicLayerXrEndSession failed");
            return result;
        }
        ContextManager::instance().updateSessionIfCurrent(session, std::nullopt, SystemNanoseconds());
        // On purpose: the handle stays, whatever the words say. The session lives on and may begin again.
        LogInfo("OrvanicLayerXrEndSession succeeded, cleared session handle");
        return result;
    });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrDestroySession(XrSession session) {
    constexpr HookGuard guard = {"OrvanicLayerXrDestroySession"};
    return GuardHook(guard, [&] {
        LogInfo("OrvanicLayerXrDestroySession called");
        GuardOwnWork(guard, [&] { DropSession(session); });  // whatever comes of the call below
        const auto destroy_session = NextFunction(&NextDispatchTable::DestroySession, "xrDestroySession");
        if (!destroy_session) return XR_ERROR_RUNTIME_FAILURE;
        const XrResult result = destroy_session(session);
        if (XR_FAILED(result)) {
            LogError("OrvanicLayerXrDestroySession failed");
            return result;
        }
        SessionState none;
        none.timestamp = SystemNanoseconds();
        ContextManager::instance().updateSessionState(none);
        LogInfo("OrvanicLayerXrDestroySession succeeded, cleared session state");
        return result;
    });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrPollEvent(XrInstance instance, XrEventDataBuffer* eventData) {
    return GuardHook({"OrvanicLayerXrPollEvent"}, [&] {
        const auto poll_event = NextFunction(&NextDispatchTable::PollEvent, "xrPollEvent");
        if (!poll_event) return XR_ERROR_RUNTIME_FAILURE;
        const XrResult result = poll_event(instance, eventData);
        // Whatever the answer: an application that renders nothing still lends its thread here.
        ExternalToolManager::instance().ProcessDeferredCallbacks(kAtPollEvent);
        if (eventData && result == XR_SUCCESS) LookAtEvent(*eventData);
        return result;
    });
}

}  // namespace orvanic_xr
