#include "context/session_context.h"

#include <gmock/gmock.h>

#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "context/context_manager.h"
#include "layer/dispatch/dispatch.h"
#include "tests/fakes/fake_runtime.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const XrSession kSession = HandleFromValue<XrSession>(0xab);

class SessionContexts : public testing::Test {
 protected:
    SessionContexts() {
        Renew(ContextManager::instance());
        InstanceState state;
        state.instance = runtime_.instance();
        ContextManager::instance().setInstanceState(state);
    }

    std::unique_ptr<SessionContext> Make() {
        auto context = std::make_unique<SessionContext>(kSession);
        runtime_.take_calls();
        log_.take();
        return context;
    }

    static void EndFrame(XrDuration period) {
        FrameState state;
        state.valid = true;
        state.predictedDisplayPeriod = period;
        ContextManager::instance().updateFrameState(state);
    }

    FakeRuntime runtime_;
    LogCapture log_;
};

TEST_F(SessionContexts, MakesSpacesThenActionsWithTheirSpaces) {
    const SessionContext context(kSession);
    EXPECT_THAT(
        runtime_.take_calls(),
        ElementsAre("xrCreateReferenceSpace(0xab, VIEW)", "xrCreateReferenceSpace(0xab, LOCAL)",
                    "xrCreateReferenceSpace(0xab, STAGE)", "xrCreateReferenceSpace(0xab, LOCAL_FLOOR)",
                    "xrCreateActionSet(instance1, orvanic_xr_action_set, \"Action set for Orvanic XR\", priority=0)",
                    "xrCreateAction(orvanic_xr_action_set, orvanic_xr_left_hand_grip_pose, "
                    "\"Grip pose of left hand\", type=4)",
                    "xrCreateActionSpace(0xab, orvanic_xr_left_hand_grip_pose)",
                    "xrCreateAction(orvanic_xr_action_set, orvanic_xr_right_hand_grip_pose, "
                    "\"Grip pose of right hand\", type=4)",
                    "xrCreateActionSpace(0xab, orvanic_xr_right_hand_grip_pose)",
                    "xrCreateAction(orvanic_xr_action_set, orvanic_xr_left_hand_aim_pose, "
                    "\"Aim pose of left hand\", type=4)",
                    "xrCreateActionSpace(0xab, orvanic_xr_left_hand_aim_pose)",
                    "xrCreateAction(orvanic_xr_action_set, orvanic_xr_right_hand_aim_pose, "
                    "\"Aim pose of right hand\", type=4)",
                    "xrCreateActionSpace(0xab, orvanic_xr_right_hand_aim_pose)"));
}

TEST_F(SessionContexts, DestroysSpacesThenTheActionsSpacesAndTheirSet) {
    Make().reset();
    EXPECT_THAT(runtime_.take_calls(),
                ElementsAre("xrDestroySpace(VIEW)", "xrDestroySpace(LOCAL)", "xrDestroySpace(STAGE)",
                            "xrDestroySpace(LOCAL_FLOOR)", "xrDestroySpace(space(orvanic_xr_left_hand_grip_pose))",
                            "xrDestroySpace(space(orvanic_xr_right_hand_grip_pose))",
                            "xrDestroySpace(space(orvanic_xr_left_hand_aim_pose))",
                            "xrDestroySpace(space(orvanic_xr_right_hand_aim_pose))",
                            "xrDestroyActionSet(orvanic_xr_action_set)"));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(SessionContexts, FailureToMakeOneStopsWhatIsMadeOfItAlone) {
    const std::tuple<const char*, int, std::size_t> rows[] = {{"xrCreateReferenceSpace", 1, 13},
                                                              {"xrCreateActionSet", 1, 5},
                                                              {"xrCreateAction", 2, 12},
                                                              {"xrCreateActionSpace", 3, 13}};
    for (const auto& [function, nth, calls] : rows) {
        runtime_.take_calls();
        runtime_.answer_call(function, nth, XR_ERROR_RUNTIME_FAILURE);
        const SessionContext context(kSession);
        EXPECT_EQ(runtime_.take_calls().size(), calls) << function;
    }
}

TEST_F(SessionContexts, NothingIsCalledWithTheHandlesOfAnEndedSession) {
    auto gone_with_its_instance = Make();
    auto ended = Make();
    ended->AdoptSpace(HandleFromValue<XrSpace>(0x99));
    ended->End();
    std::vector<std::string> calls = runtime_.take_calls();
    EXPECT_EQ(calls.size(), 10u);
    EXPECT_EQ(calls.front(), "xrDestroySpace(0x99)");
    gone_with_its_instance->Close();
    for (auto* context : {&ended, &gone_with_its_instance}) {
        XrSpaceLocation location{};
        EXPECT_EQ((*context)->Call(&NextDispatchTable::LocateSpace, (*context)->viewSpace, (*context)->stageSpace, 1,
                                   &location),
                  XR_ERROR_HANDLE_INVALID);
        EXPECT_TRUE((*context)->ended());
        context->reset();
    }
    EXPECT_THAT(runtime_.take_calls(), IsEmpty());
}

TEST_F(SessionContexts, LocateTimeFollowsTheFrames) {
    SessionContext context(XR_NULL_HANDLE);
    EXPECT_EQ(context.CurrentLocateTime(), 0);
    context.RecordFrameTime(100);
    EXPECT_EQ(context.CurrentLocateTime(), 100);
    context.ConsumeFrameTime();
    EXPECT_EQ(context.CurrentLocateTime(), 0);  // no frame had ended when the period was looked for
    EndFrame(10);
    EXPECT_EQ(context.CurrentLocateTime(), 0);
    context.RecordFrameTime(110);
    context.RecordFrameTime(120);
    EXPECT_EQ(context.CurrentLocateTime(), 110);
    context.ConsumeFrameTime();
    EXPECT_EQ(context.CurrentLocateTime(), 120);
    context.ConsumeFrameTime();
    EXPECT_EQ(context.CurrentLocateTime(), 130);
    context.ConsumeFrameTime();
    EXPECT_EQ(context.CurrentLocateTime(), 130);
}

TEST_F(SessionContexts, LocateTimeNeverLeavesItsType) {
    SessionContext context(XR_NULL_HANDLE);
    EndFrame(std::numeric_limits<XrDuration>::max());
    context.RecordFrameTime(5);
    context.ConsumeFrameTime();
    EXPECT_EQ(context.CurrentLocateTime(), std::numeric_limits<XrTime>::max());
}

}  // namespace
}  // namespace orvanic_xr
