#include "layer/session_hooks.h"

#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "capture/screen_capture_manager.h"
#include "diagnostics/clock.h"
#include "external/external_tool.h"
#include "scene/scene_context.h"
#include "tests/layer/hook_fixture.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class SessionHooks : public HookFixture {
 protected:
    SessionHooks() {
        ContextManager::instance().setSceneContextFactory(
            [](XrSession session) { return std::make_shared<SceneContext>(session); });
    }
    ~SessionHooks() override { ScreenCaptureManager::instance().shutdown(); }

    XrSession Create(XrSystemId system_id = 7) {
        const XrSessionCreateInfo info = {XR_TYPE_SESSION_CREATE_INFO, nullptr, 0, system_id};
        XrSession session = XR_NULL_HANDLE;
        EXPECT_EQ(OrvanicLayerXrCreateSession(runtime_.instance(), &info, &session), XR_SUCCESS);
        return session;
    }
    // As Create, with calls and lines forgotten.
    XrSession Created() {
        const XrSession session = Create();
        runtime_.take_calls();
        log_.take();
        return session;
    }
    XrResult Poll() {
        XrEventDataBuffer event{};
        return OrvanicLayerXrPollEvent(runtime_.instance(), &event);
    }
    void EnableCapture() {
        InstanceState state = ContextManager::instance().getInstanceState();
        state.enabledExtensions.insert("XR_KESTX1_simulator_compositor_output_capture");
        ContextManager::instance().setInstanceState(state);
    }
    static SessionState State() { return ContextManager::instance().getSessionState(); }
    static bool HasContext(XrSession session) {
        return ContextManager::instance().getSessionContext(session)->session == session;
    }
    std::vector<std::string> CallNames() {
        std::vector<std::string> names;
        for (const std::string& call : runtime_.take_calls()) names.push_back(call.substr(0, call.find('(')));
        return names;
    }

    FakeClock clock_{1'000, 0};
};

TEST_F(SessionHooks, CreationMakesTheSessionCurrentAndThenItsContexts) {
    const XrSession session = Create();
    const auto lines = log_.take();
    ASSERT_EQ(lines.size(), 17u);
    EXPECT_EQ(lines[0], "INFO OrvanicLayerXrCreateSession called");
    EXPECT_EQ(lines[1], "INFO Session restarted: old=0x0 new=0x2001 generation=1");
    EXPECT_EQ(lines[2], "INFO OrvanicLayerXrCreateSession succeeded, cached session handle: 8193, state: IDLE");
    EXPECT_EQ(lines[3], "INFO Cached system properties: systemId=7, vendorId=4660, systemName=Fake headset");
    EXPECT_EQ(lines[4], "INFO Reference space created: XR_REFERENCE_SPACE_TYPE_VIEW");
    EXPECT_EQ(lines[16],
              "WARNING Required scene query extensions not enabled. Is the application a mixed-reality one?");

    EXPECT_TRUE(State().valid);
    EXPECT_EQ(State().session, session);
    EXPECT_EQ(State().state, XR_SESSION_STATE_IDLE);
    EXPECT_EQ(State().timestamp, 1'000);
    const SystemState system = ContextManager::instance().getSystemState();
    EXPECT_TRUE(system.valid);
    EXPECT_EQ(system.systemId, 7u);
    EXPECT_EQ(system.graphicsProperties.maxSwapchainImageHeight, 2048u);
    EXPECT_EQ(system.graphicsProperties.maxSwapchainImageWidth, 4096u);
    EXPECT_EQ(system.graphicsProperties.maxLayerCount, 16u);
    EXPECT_EQ(system.trackingProperties.positionTracking, XrBool32{XR_TRUE});
    EXPECT_EQ(system.timestamp, 1'000);
    EXPECT_TRUE(HasContext(session));
    EXPECT_NE(ContextManager::instance().getSceneContext(session), nullptr);
}

TEST_F(SessionHooks, SessionIsMadeWithoutASystem) {
    const auto create_and_complain = [&](const XrSessionCreateInfo* info) {
        XrSession session = XR_NULL_HANDLE;
        log_.take();
        EXPECT_EQ(OrvanicLayerXrCreateSession(runtime_.instance(), info, &session), XR_SUCCESS);
        EXPECT_FALSE(ContextManager::instance().getSystemState().valid);
        EXPECT_TRUE(HasContext(session));
        auto complaints = log_.take();
        std::erase_if(complaints, [](const std::string& line) { return line.find("xrGetSystem") == line.npos; });
        return complaints;
    };
    XrSessionCreateInfo info = {XR_TYPE_SESSION_CREATE_INFO, nullptr, 0, XR_NULL_SYSTEM_ID};
    EXPECT_THAT(create_and_complain(nullptr), IsEmpty());
    EXPECT_THAT(create_and_complain(&info), IsEmpty());
    info.systemId = 7;
    runtime_.answer("xrGetSystemProperties", XR_ERROR_SYSTEM_INVALID);
    EXPECT_THAT(create_and_complain(&info), ElementsAre("ERROR xrGetSystemProperties failed with result: -18"));
    runtime_.lack("xrGetSystemProperties");
    EXPECT_THAT(create_and_complain(&info), ElementsAre("WARNING xrGetSystemProperties function is not available"));
}

TEST_F(SessionHooks, SystemNameWithoutAnEndIsCutAtItsSize) {
    std::memset(runtime_.system.systemName, 'x', sizeof runtime_.system.systemName);
    Create();
    EXPECT_EQ(ContextManager::instance().getSystemState().systemName, std::string(256, 'x'));
}

TEST_F(SessionHooks, BeginningIsANewMomentOfTheSameState) {
    const XrSession session = Created();
    clock_.Advance(500);
    EXPECT_EQ(OrvanicLayerXrBeginSession(session, nullptr), XR_SUCCESS);
    EXPECT_EQ(State().state, XR_SESSION_STATE_IDLE);
    EXPECT_EQ(State().timestamp, 1'500);
    EXPECT_EQ(ContextManager::instance().getSessionHistory().size(), 2u);
    EXPECT_EQ(mainThreadId.load(), std::this_thread::get_id());
    const std::string thread = std::to_string(std::hash<std::thread::id>{}(std::this_thread::get_id()));
    EXPECT_THAT(log_.take(), ElementsAre("INFO OrvanicLayerXrBeginSession called",
                                         "INFO Captured main thread ID for deferred callbacks: " + thread,
                                         "INFO OrvanicLayerXrBeginSession succeeded, cached session handle: 8193",
                                         "WARNING ScreenCapture: No backend available"));
}

TEST_F(SessionHooks, BackendStartsAfterTheSessionAndStopsBeforeIt) {
    EnableCapture();
    const XrSession session = Created();
    OrvanicLayerXrBeginSession(session, nullptr);
    EXPECT_EQ(OrvanicLayerXrEndSession(session), XR_SUCCESS);
    EXPECT_THAT(runtime_.take_calls(),
                ElementsAre("xrBeginSession(session1)", "xrStartSimulatorCompositorOutputCaptureKESTX1(session1, 3)",
                            "xrStopSimulatorCompositorOutputCaptureKESTX1(session1)", "xrEndSession(session1)"));
}

TEST_F(SessionHooks, RefusedBeginAsksForTheBackendAllTheSame) {
    EnableCapture();
    const XrSession session = Created();
    clock_.Advance(500);
    mainThreadId = std::thread::id();
    runtime_.answer("xrBeginSession", XR_ERROR_SESSION_NOT_READY);
    EXPECT_EQ(OrvanicLayerXrBeginSession(session, nullptr), XR_ERROR_SESSION_NOT_READY);
    EXPECT_EQ(State().timestamp, 1'000);
    EXPECT_EQ(mainThreadId.load(), std::thread::id());
    EXPECT_THAT(CallNames(), ElementsAre("xrBeginSession", "xrStartSimulatorCompositorOutputCaptureKESTX1"));
    EXPECT_THAT(log_.take(),
                ElementsAre("INFO OrvanicLayerXrBeginSession called", "ERROR OrvanicLayerXrBeginSession failed",
                            "INFO ScreenCapture: Using OpenXR simulator compositor capture backend",
                            "INFO SimulatorCompositorCapture: Started"));
}

TEST_F(SessionHooks, EndLeavesTheSessionCurrentInItsState) {
    const XrSession session = Created();
    runtime_.push_session_state(session, XR_SESSION_STATE_STOPPING);
    Poll();
    log_.take();
    clock_.Advance(500);
    EXPECT_EQ(OrvanicLayerXrEndSession(session), XR_SUCCESS);
    EXPECT_TRUE(State().valid);
    EXPECT_EQ(State().session, session);
    EXPECT_EQ(State().state, XR_SESSION_STATE_STOPPING);
    EXPECT_EQ(State().timestamp, 1'500);
    EXPECT_TRUE(HasContext(session));
    EXPECT_THAT(log_.take(), ElementsAre("INFO OrvanicLayerXrEndSession called",
                                         "INFO OrvanicLayerXrEndSession succeeded, cleared session handle"));
}

TEST_F(SessionHooks, DestructionDropsTheContextsBeforeTheRuntimeDropsTheSession) {
    const XrSession session = Created();
    auto animation = PoseAnimationManager::instance().StartAnimation({"/user/head", {}, {}, 100.0f, {}, 0, {}});
    ActionMaps::instance().AddSpace(HandleFromValue<XrSpace>(0x99), {HandleFromValue<XrAction>(0x98), kLeftHand});
    log_.take();
    EXPECT_EQ(OrvanicLayerXrDestroySession(session), XR_SUCCESS);
    const auto calls = CallNames();
    EXPECT_THAT(calls, testing::SizeIs(10));
    EXPECT_EQ(calls.back(), "xrDestroySession");
    ASSERT_EQ(animation.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    EXPECT_EQ(animation.get(), AnimationSuperseded);
    EXPECT_FALSE(ActionMaps::instance().FindSpace(HandleFromValue<XrSpace>(0x99), false));
    EXPECT_THAT(log_.take(),
                ElementsAre("INFO OrvanicLayerXrDestroySession called",
                            "WARNING PoseAnimationManager: Cancelling 1 active animations",
                            "WARNING PoseAnimationManager: /user/head superseded by the end of the session",
                            "INFO SceneContext destroyed",
                            "INFO OrvanicLayerXrDestroySession succeeded, cleared session state"));
    EXPECT_FALSE(State().valid);
    EXPECT_EQ(State().session, XrSession{});
    EXPECT_EQ(State().state, XR_SESSION_STATE_UNKNOWN);
    EXPECT_EQ(State().generation, 1u);
    EXPECT_FALSE(HasContext(session));
    EXPECT_TRUE(ContextManager::instance().getSystemState().valid);
    Create();
    EXPECT_EQ(State().generation, 2u);
    EXPECT_THAT(log_.take(), Contains("INFO Session restarted: old=0x0 new=0x2002 generation=2"));
}

TEST_F(SessionHooks, EndOfAnOlderSessionMarksTheNewerOneInvalid) {
    const XrSession older = Create();
    const XrSession newer = Created();
    runtime_.push_session_state(older, XR_SESSION_STATE_STOPPING);
    Poll();
    EXPECT_EQ(State().state, XR_SESSION_STATE_IDLE);
    EXPECT_EQ(OrvanicLayerXrBeginSession(older, nullptr), XR_SUCCESS);
    EXPECT_EQ(State().session, newer);
    OrvanicLayerXrDestroySession(older);
    EXPECT_FALSE(State().valid);
    EXPECT_FALSE(HasContext(older));
    EXPECT_TRUE(HasContext(newer));
}

TEST_F(SessionHooks, StateEventsOfTheCurrentSessionAreFollowed) {
    const XrSession session = Created();
    struct Row {
        XrSession session;
        std::int32_t state;
        std::vector<std::string> lines;
    };
    const Row rows[] = {
        {session, 2, {"INFO Session state changed to: XR_SESSION_STATE_READY (2)"}},
        {session, 5, {"INFO Session state changed to: XR_SESSION_STATE_FOCUSED (5)"}},
        {session, 9, {"INFO Session state changed to: XR_SESSION_STATE_UNKNOWN (9)"}},
        {session, 0x7FFFFFFF, {"INFO Session state changed to: XR_SESSION_STATE_MAX_ENUM (2147483647)"}},
        {HandleFromValue<XrSession>(0x99), 6, {}},
        {XR_NULL_HANDLE, 6, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.state);
        clock_.Advance(1);
        const SessionState before = State();
        runtime_.push_session_state(row.session, static_cast<XrSessionState>(row.state));
        EXPECT_EQ(Poll(), XR_SUCCESS);
        EXPECT_EQ(log_.take(), row.lines);
        EXPECT_EQ(State().state, row.lines.empty() ? before.state : row.state);
        EXPECT_EQ(State().timestamp, before.timestamp + (row.lines.empty() ? 0 : 1));
    }
}

TEST_F(SessionHooks, EventIsLookedAtOnlyAfterPlainSuccess) {
    const XrSession session = Created();
    runtime_.push_session_state(session, XR_SESSION_STATE_READY);
    runtime_.answer_once("xrPollEvent", XR_SESSION_LOSS_PENDING);
    EXPECT_EQ(Poll(), XR_SESSION_LOSS_PENDING);
    runtime_.push_session_state(session, XR_SESSION_STATE_READY);
    EXPECT_EQ(OrvanicLayerXrPollEvent(runtime_.instance(), nullptr), XR_SUCCESS);
    EXPECT_EQ(Poll(), XR_EVENT_UNAVAILABLE);
    EXPECT_EQ(State().state, XR_SESSION_STATE_IDLE);
    EXPECT_THAT(log_.take(), IsEmpty());
}

// The runtime holds a tool's call while the application destroys the session, or the instance with it.
TEST_F(SessionHooks, DestructionWaitsForTheCallOfAToolAndLetsNoneThroughAfterIt) {
    const XrSession session = Created();
    const auto context = ContextManager::instance().getSessionContext(session);
    const auto locate = [&] {
        XrSpaceLocation location{};
        return context->Call(&NextDispatchTable::LocateSpace, context->viewSpace, context->stageSpace, 1, &location);
    };
    Gate gate = runtime_.block_call("xrLocateSpace", 1);
    auto held = std::async(std::launch::async, locate);
    ASSERT_TRUE(gate.wait_for_caller());
    auto destruction = std::async(std::launch::async, [&] { return OrvanicLayerXrDestroySession(session); });
    EXPECT_EQ(destruction.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_EQ(locate(), XR_ERROR_HANDLE_INVALID) << "no second call, though the destruction is not yet forwarded";
    gate.open();
    EXPECT_EQ(held.get(), XR_SUCCESS);
    EXPECT_EQ(destruction.get(), XR_SUCCESS);
    EXPECT_EQ(locate(), XR_ERROR_HANDLE_INVALID);
    EXPECT_EQ(runtime_.calls("xrLocateSpace").size(), 1u);
    EXPECT_EQ(runtime_.take_calls().back(), "xrDestroySession(session1)");
}

TEST_F(SessionHooks, BackendStopsWithASessionThatWasNotEnded) {
    EnableCapture();
    const XrSession session = Created();
    OrvanicLayerXrBeginSession(session, nullptr);
    const XrSession other = Created();
    OrvanicLayerXrDestroySession(other);
    EXPECT_THAT(runtime_.calls("xrStopSimulatorCompositorOutputCaptureKESTX1"), IsEmpty());
    OrvanicLayerXrDestroySession(session);
    EXPECT_EQ(runtime_.calls("xrStopSimulatorCompositorOutputCaptureKESTX1").size(), 1u);
    EXPECT_FALSE(ScreenCaptureManager::instance().backend()->is_ready());
}

}  // namespace
}  // namespace orvanic_xr
