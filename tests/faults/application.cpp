#include "tests/faults/application.h"

#include <array>
#include <chrono>
#include <cstring>
#include <future>
#include <thread>
#include <utility>

#include "layer/action_hooks.h"
#include "layer/binding_hooks.h"
#include "layer/frame_hooks.h"
#include "layer/hooks.h"
#include "layer/instance_hooks.h"
#include "layer/pending_frames.h"
#include "layer/session_hooks.h"
#include "layer/space_hooks.h"
#include "mcp/server_host.h"
#include "tests/fakes/loader_records.h"
#include "tests/fakes/renew.h"
#include "tools/tool_registry.h"
#include "xr/handles.h"
#include "xr/simulator_capture_records.h"

namespace orvanic_xr {
namespace {

constexpr auto kPatience = std::chrono::seconds(10);

// Handles that the application made with no hook on the way.
const auto kActionSet = HandleFromValue<XrActionSet>(0x8001);
const auto kPoseAction = HandleFromValue<XrAction>(0x8101);
const auto kSelectAction = HandleFromValue<XrAction>(0x8102);
const auto kBaseSpace = HandleFromValue<XrSpace>(0x8201);

constexpr XrActionStateGetInfo GetInfo(XrAction action) {
    return {XR_TYPE_ACTION_STATE_GET_INFO, nullptr, action, XR_NULL_PATH};
}

XrResult CaptureTwoByTwo(XrSession, SimulatorCompositorCaptureInfo* info) {
    *info->width_output = *info->height_output = 2;
    if (info->pixels) std::memset(info->pixels, 0, 16);
    return XR_SUCCESS;
}

std::int32_t LookUpOther(Application& app) {
    PFN_xrVoidFunction function = nullptr;
    return OrvanicLayerXrGetInstanceProcAddr(app.instance, "xrGetSystemProperties", &function);
}

std::int32_t Attach(Application& app) {
    const XrSessionActionSetsAttachInfo info = {XR_TYPE_SESSION_ACTION_SETS_ATTACH_INFO, nullptr, 1, &kActionSet};
    return OrvanicLayerXrAttachSessionActionSets(app.session, &info);
}

std::int32_t CreateHandSpace(Application& app) {
    const XrActionSpaceCreateInfo info = {
        XR_TYPE_ACTION_SPACE_CREATE_INFO, nullptr, kPoseAction, app.runtime.path("/user/hand/left"), {}};
    return OrvanicLayerXrCreateActionSpace(app.session, &info, &app.hand_space);
}

std::int32_t PollState(Application& app) {
    app.runtime.push_session_state(app.session, XR_SESSION_STATE_FOCUSED);
    return app.Poll({});
}

std::int32_t Sync(Application& app) {
    const XrActiveActionSet active = {kActionSet, XR_NULL_PATH};
    const XrActionsSyncInfo info = {XR_TYPE_ACTIONS_SYNC_INFO, nullptr, 1, &active};
    return OrvanicLayerXrSyncActions(app.session, &info);
}

std::int32_t LocateHand(Application& app) {
    XrSpaceLocation location = {XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
    return OrvanicLayerXrLocateSpace(app.hand_space, kBaseSpace, 1, &location);
}

std::int32_t GetPose(Application& app) {
    const XrActionStateGetInfo info = GetInfo(kPoseAction);
    XrActionStatePose state = {XR_TYPE_ACTION_STATE_POSE, nullptr, XR_FALSE};
    return OrvanicLayerXrGetActionStatePose(app.session, &info, &state);
}

std::int32_t GetFloat(Application& app) {
    const XrActionStateGetInfo info = GetInfo(kSelectAction);
    XrActionStateFloat state = {XR_TYPE_ACTION_STATE_FLOAT, nullptr, 0, XR_FALSE, 0, XR_FALSE};
    return OrvanicLayerXrGetActionStateFloat(app.session, &info, &state);
}

std::int32_t GetBoolean(Application& app) {
    const XrActionStateGetInfo info = GetInfo(kSelectAction);
    XrActionStateBoolean state = {XR_TYPE_ACTION_STATE_BOOLEAN, nullptr, XR_FALSE, XR_FALSE, 0, XR_FALSE};
    return OrvanicLayerXrGetActionStateBoolean(app.session, &info, &state);
}

}  // namespace

Application::Application() {
    // Frames that an earlier life waited for in vain stay there, on purpose, and the next ones come late.
    Renew(PendingFrames::instance());
    runtime.offer_spatial_entities();
    room.container_with({"WALL", "LAMP"});
    runtime.on("xrCaptureSimulatorCompositorOutputKESTX1", CaptureTwoByTwo);
    runtime.on("xrGetCurrentInteractionProfile", [this](XrSession, XrPath, XrInteractionProfileState* state) {
        state->interactionProfile = runtime.path("/interaction_profiles/kest/pronto_controller_plus");
        return XR_SUCCESS;
    });
}

std::int32_t Application::CreateInstance() {
    XrInstanceCreateInfo info = {XR_TYPE_INSTANCE_CREATE_INFO, nullptr, 0, {}, 0, nullptr, 0, nullptr};
    std::strcpy(info.applicationInfo.applicationName, "Faults");
    XrApiLayerNextInfo next = NextInfo("XR_APILAYER_KESTX_velmoor", FakeRuntime::next_get_instance_proc_addr(),
                                       FakeRuntime::next_create_api_layer_instance());
    const XrApiLayerCreateInfo layer = LayerInfo(&next);
    const XrResult result = OrvanicLayerXrCreateApiLayerInstance(&info, &layer, &instance);
    // A server that has already failed takes no time to stop.
    for (const auto& server : {McpServerHost::instance().ipv4_server(), McpServerHost::instance().ipv6_server()}) {
        if (server) server->wait_until_listening(kPatience);
    }
    return result;
}

std::int32_t Application::CreateSession() {
    const XrSessionCreateInfo info = {XR_TYPE_SESSION_CREATE_INFO, nullptr, 0, 1};
    return OrvanicLayerXrCreateSession(instance, &info, &session);
}

std::int32_t Application::SuggestBindings() {
    const std::array<XrActionSuggestedBinding, 2> bindings = {
        {{kPoseAction, runtime.path("/user/hand/left/input/grip/pose")},
         {kSelectAction, runtime.path("/user/hand/right/input/select/click")}}};
    const XrInteractionProfileSuggestedBinding info = {XR_TYPE_INTERACTION_PROFILE_SUGGESTED_BINDING, nullptr,
                                                       runtime.path("/interaction_profiles/khr/simple_controller"),
                                                       bindings.size(), bindings.data()};
    return OrvanicLayerXrSuggestInteractionProfileBindings(instance, &info);
}

std::int32_t Application::Poll(const std::vector<XrEventDataBuffer>& events) {
    for (const XrEventDataBuffer& event : events) runtime.push_event(event);
    XrEventDataBuffer event = {XR_TYPE_EVENT_DATA_BUFFER, nullptr, {}};
    XrResult result = XR_SUCCESS;
    while (result == XR_SUCCESS) result = OrvanicLayerXrPollEvent(instance, &event);
    return result == XR_EVENT_UNAVAILABLE ? XR_SUCCESS : result;
}

std::int32_t Application::Frame() {
    XrFrameState state = {XR_TYPE_FRAME_STATE, nullptr, 0, 0, XR_FALSE};
    XrResult result = OrvanicLayerXrWaitFrame(session, nullptr, &state);
    if (XR_FAILED(result)) return result;
    result = OrvanicLayerXrBeginFrame(session, nullptr);
    if (XR_FAILED(result)) return result;
    const XrFrameEndInfo info = {XR_TYPE_FRAME_END_INFO,           nullptr, state.predictedDisplayTime,
                                 XR_ENVIRONMENT_BLEND_MODE_OPAQUE, 0,       nullptr};
    return OrvanicLayerXrEndFrame(session, &info);
}

std::int32_t Application::Call(const std::string& tool, mcp::json arguments) {
    const ToolInvocationResult invoked = InProcessToolRegistry::instance().invoke(tool, arguments);
    answer = invoked.success ? mcp::dump_json(invoked.result) : invoked.error;
    return invoked.success ? std::int32_t{XR_SUCCESS} : kToolThrew;
}

std::int32_t Application::CallWhileFramesRun(const std::string& tool, mcp::json arguments) {
    std::future<std::int32_t> called = std::async(std::launch::async, [&] { return Call(tool, std::move(arguments)); });
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    std::int32_t frames = XR_SUCCESS;
    while (called.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready) {
        const std::int32_t frame = Frame();
        if (frames == XR_SUCCESS) frames = frame;
        if (std::chrono::steady_clock::now() > deadline) return XR_TIMEOUT_EXPIRED;
    }
    const std::int32_t result = called.get();
    return frames == XR_SUCCESS ? result : frames;
}

std::int32_t Application::PressAndRelease() {
    log_.take();
    const std::size_t before = runtime.calls("xrSetInputDeviceStateBoolEXT").size();
    const std::int32_t result =
        Call("openxr_set_controller_input",
             {{"hand", "left"}, {"component", "X"}, {"value", 1}, {"auto_release", true}, {"hold_duration", 0.001}});
    if (result != XR_SUCCESS || answer.find("true") == std::string::npos) return result;
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    const auto released = [&] {
        return runtime.calls("xrSetInputDeviceStateBoolEXT").size() >= before + 2 || !log_.lines().empty();
    };
    while (!released()) {
        if (std::chrono::steady_clock::now() > deadline) return XR_TIMEOUT_EXPIRED;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return result;
}

const std::vector<Step>& WholeLife() {
    static const std::vector<Step> kLife = {
        {"create instance", false, [](Application& app) { return app.CreateInstance(); }},
        {"look up", false, LookUpOther},
        {"create session", false, [](Application& app) { return app.CreateSession(); }},
        {"suggest bindings", false, [](Application& app) { return app.SuggestBindings(); }},
        {"attach", false, Attach},
        {"create hand space", false, CreateHandSpace},
        {"begin session", false,
         [](Application& app) -> std::int32_t { return OrvanicLayerXrBeginSession(app.session, nullptr); }},
        {"poll state", false, PollState},
        {"poll containers", false, [](Application& app) { return app.Poll(app.room.results_available()); }},
        {"poll entities", false, [](Application& app) { return app.Poll(app.room.results_available()); }},
        {"poll components", false, [](Application& app) { return app.Poll(app.room.components_set()); }},
        // The layer knows how long a frame takes from the second one on.
        {"frames", false,
         [](Application& app) {
             const std::int32_t first = app.Frame();
             return first == XR_SUCCESS ? app.Frame() : first;
         }},
        {"sync", false, Sync},
        {"locate hand", false, LocateHand},
        {"get pose", false, GetPose},
        {"get float", false, GetFloat},
        {"get boolean", false, GetBoolean},
        {"head pose", true, [](Application& app) { return app.Call("openxr_get_head_pose"); }},
        {"controller pose", true,
         [](Application& app) {
             return app.Call("openxr_get_controller_pose", {{"hand", "left"}});
         }},
        {"convert pose", true, [](Application& app) { return app.Call("openxr_convert_pose_between_spaces"); }},
        {"interaction profile", true,
         [](Application& app) {
             return app.Call("openxr_get_active_interaction_profile", {{"hand", "left"}});
         }},
        {"capture", true, [](Application& app) { return app.Call("openxr_capture_composited_image"); }},
        {"list entities", true, [](Application& app) { return app.Call("openxr_list_spatial_entities"); }},
        {"take over", true,
         [](Application& app) {
             return app.Call("openxr_set_head_pose", {{"position", {0, 1, 2}}});
         }},
        {"mirrored pose", true,
         [](Application& app) {
             return app.Call("openxr_get_controller_pose", {{"hand", "left"}, {"base_space", "local"}});
         }},
        {"locate simulated hand", false, LocateHand},
        {"move controller", true,
         [](Application& app) {
             return app.Call("openxr_set_controller_pose", {{"hand", "right"}, {"position", {1, 1, 1}}});
         }},
        {"move head over time", true,
         [](Application& app) {
             return app.CallWhileFramesRun("openxr_set_head_pose",
                                           {{"position", {3, 1, 2}}, {"duration_seconds", 1e-9}});
         }},
        {"press and release", true, [](Application& app) { return app.PressAndRelease(); }},
        {"pull trigger", true,
         [](Application& app) {
             return app.Call("openxr_set_controller_input",
                             {{"hand", "left"}, {"component", "Trigger"}, {"value", 0.5}});
         }},
        {"exit", true, [](Application& app) { return app.Call("openxr_exit_session"); }},
        {"last frame", false, [](Application& app) { return app.Frame(); }},
        {"destroy hand space", false,
         [](Application& app) -> std::int32_t { return OrvanicLayerXrDestroySpace(app.hand_space); }},
        {"destroy action", false,
         [](Application&) -> std::int32_t { return OrvanicLayerXrDestroyAction(kPoseAction); }},
        {"end session", false, [](Application& app) -> std::int32_t { return OrvanicLayerXrEndSession(app.session); }},
        {"destroy session", false,
         [](Application& app) -> std::int32_t { return OrvanicLayerXrDestroySession(app.session); }},
        {"destroy instance", false,
         [](Application& app) -> std::int32_t { return OrvanicLayerXrDestroyInstance(app.instance); }},
    };
    return kLife;
}

}  // namespace orvanic_xr
