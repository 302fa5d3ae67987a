#include "context/context_manager.h"

#include <gmock/gmock.h>

#include <memory>

#include "context/session_context.h"
#include "diagnostics/clock.h"
#include "layer/dispatch/dispatch.h"
#include "tests/fakes/fake_runtime.h"
#include "tests/fakes/log_capture.h"
#include "xr/handles.h"

namespace orvanic_xr {

class SceneContext {  // stands in for the scene's
 public:
    explicit SceneContext(XrSession xr_session) : session(xr_session) {}
    XrSession session;
};

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

XrSession Session(std::uint64_t value) {
    return HandleFromValue<XrSession>(value);
}

class Contexts : public testing::Test {
 protected:
    void Update(std::uint64_t session, XrSessionState state, std::int64_t timestamp) {
        manager_.updateSessionState({session != 0, Session(session), state, timestamp});
    }

    FakeRuntime runtime_;
    FakeClock clock_{5'000, 0};
    LogCapture log_;
    ContextManager manager_;
};

TEST_F(Contexts, EverySessionThatBecomesCurrentIsAGeneration) {
    Update(0xab, XR_SESSION_STATE_IDLE, 1);
    Update(0xab, XR_SESSION_STATE_READY, 2);
    EXPECT_EQ(manager_.getSessionState().generationStartTime, 5'000);
    clock_.Advance(1'000);
    Update(0xab, XR_SESSION_STATE_FOCUSED, 3);
    EXPECT_EQ(manager_.getSessionState().generation, 1u);
    EXPECT_EQ(manager_.getSessionState().generationStartTime, 5'000);
    manager_.updateSessionState({false, Session(0xab), XR_SESSION_STATE_UNKNOWN, 4});
    EXPECT_EQ(manager_.getSessionState().generation, 1u);
    Update(0xab, XR_SESSION_STATE_IDLE, 5);
    Update(0xcd, XR_SESSION_STATE_IDLE, 6);
    const SessionState state = manager_.getSessionState();
    EXPECT_EQ(state.generation, 3u);
    EXPECT_EQ(state.generationStartTime, 6'000);
    EXPECT_EQ(state.session, Session(0xcd));
    EXPECT_EQ(state.timestamp, 6);
    EXPECT_THAT(log_.take(), ElementsAre("INFO Session restarted: old=0x0 new=0xab generation=1",
                                         "INFO Session restarted: old=0x0 new=0xab generation=2",
                                         "INFO Session restarted: old=0xab new=0xcd generation=3"));
}

TEST_F(Contexts, OnlyTheCurrentSessionIsUpdatedInOneStep) {
    EXPECT_FALSE(manager_.updateSessionIfCurrent(Session(0xab), XR_SESSION_STATE_READY, 7));
    EXPECT_FALSE(manager_.updateSessionIfCurrent(XR_NULL_HANDLE, XR_SESSION_STATE_READY, 7));
    Update(0xab, XR_SESSION_STATE_IDLE, 1);
    EXPECT_FALSE(manager_.updateSessionIfCurrent(Session(0xcd), XR_SESSION_STATE_READY, 8));
    EXPECT_TRUE(manager_.updateSessionIfCurrent(Session(0xab), XR_SESSION_STATE_READY, 9));
    EXPECT_TRUE(manager_.updateSessionIfCurrent(Session(0xab), std::nullopt, 10));
    EXPECT_EQ(manager_.getSessionState().state, XR_SESSION_STATE_READY);
    EXPECT_EQ(manager_.getSessionState().timestamp, 10);
    EXPECT_EQ(manager_.getSessionHistory().size(), 3u);
}

TEST_F(Contexts, ContextOfAnUnknownSessionIsEmptyAndMakesNothing) {
    const auto context = manager_.getSessionContext(Session(0x7f12a0));
    EXPECT_EQ(context->session, XrSession{});
    EXPECT_THAT(runtime_.calls(), IsEmpty());
    EXPECT_EQ(manager_.getSceneContext(Session(0x1)), nullptr);
    manager_.setSceneContextFactory([](XrSession session) { return std::make_shared<SceneContext>(session); });
    EXPECT_EQ(manager_.getSceneContext(Session(0x7f12a0))->session, XrSession{});
    EXPECT_THAT(log_.take(), ElementsAre("ERROR Session context not found for session %p0x7f12a0",
                                         "ERROR Scene context not found for session %p0x1",
                                         "ERROR Scene context not found for session %p0x7f12a0"));
}

TEST_F(Contexts, RemovedContextEndsAlsoForWhoeverHoldsIt) {
    manager_.createSessionContext(Session(0xab));
    const auto tools_share = manager_.getSessionContext(Session(0xab));
    EXPECT_FALSE(tools_share->ended());
    manager_.removeSessionContext(Session(0xab));
    EXPECT_TRUE(tools_share->ended());
    EXPECT_EQ(runtime_.calls("xrDestroySpace").size(), 8u);
    manager_.removeSessionContext(Session(0xab));
}

TEST_F(Contexts, SessionsThatTheirInstanceTookAlongAreForgottenWithoutACall) {
    Update(0xab, XR_SESSION_STATE_FOCUSED, 1);
    manager_.createSessionContext(Session(0xab));
    manager_.closeSessions(runtime_.instance());
    EXPECT_FALSE(manager_.getSessionContext(Session(0xab))->ended()) << "of no instance";
    manager_.closeSessions(XR_NULL_HANDLE);
    runtime_.take_calls();
    manager_.forgetSessions();
    manager_.forgetSessions();
    EXPECT_THAT(runtime_.take_calls(), IsEmpty());
    EXPECT_FALSE(manager_.getSessionState().valid);
    EXPECT_EQ(manager_.getSessionState().timestamp, 5'000);
    EXPECT_EQ(manager_.getSessionHistory().size(), 2u);

    runtime_.install();  // the next instance, whose session happens to have the same handle
    Update(0xab, XR_SESSION_STATE_IDLE, 2);
    manager_.createSessionContext(Session(0xab));
    EXPECT_EQ(manager_.getSessionState().generation, 2u);
    EXPECT_EQ(runtime_.name_of(HandleValue(manager_.getSessionContext(Session(0xab))->viewSpace)), "VIEW#2");
    EXPECT_THAT(runtime_.calls("xrDestroySpace"), IsEmpty());
}

TEST_F(Contexts, HistoriesHoldTheHundredNewestUpdatesAndTheThirtyNewestValidFrames) {
    for (int i = 1; i <= 101; ++i) Update(0xab, XR_SESSION_STATE_FOCUSED, i);
    const auto updates = manager_.getSessionHistory();
    ASSERT_EQ(updates.size(), 100u);
    EXPECT_EQ(updates.front().timestamp, 2);
    EXPECT_EQ(updates.back().timestamp, 101);
    for (int i = 1; i <= 31; ++i) {
        FrameState state;
        state.valid = true;
        state.predictedDisplayTime = i;
        state.layers.resize(static_cast<std::size_t>(i));
        manager_.updateFrameState(state);
    }
    const auto history = manager_.getFrameHistory();
    ASSERT_EQ(history.size(), 30u);
    EXPECT_EQ(history.front().predictedDisplayTime, 2);
    EXPECT_EQ(history.back().predictedDisplayTime, 31);
    EXPECT_EQ(history.back().layers.size(), 31u);
    EXPECT_EQ(manager_.getFrameState().layers.size(), 31u);

    FrameState invalid;
    invalid.predictedDisplayTime = 99;
    manager_.updateFrameState(invalid);
    EXPECT_EQ(manager_.getFrameHistory().back().predictedDisplayTime, 31);
    EXPECT_EQ(manager_.getFrameState().predictedDisplayTime, 99);
    EXPECT_EQ(manager_.lastFramePeriod(), std::nullopt);
}

}  // namespace
}  // namespace orvanic_xr
