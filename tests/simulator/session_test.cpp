// The life of a session and its frame loop.
#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <future>
#include <utility>

#include "tests/simulator/simulator_fixture.h"

namespace simulator_test {
namespace {

using ::testing::ElementsAre;

class SimulatorSession : public SimulatorTest {
 protected:
    XrResult TryWait(XrSession session) {
        auto state = Typed<XrFrameState>(XR_TYPE_FRAME_STATE);
        return WaitFrame(session, nullptr, &state);
    }

    XrResult TryEnd(XrSession session) {
        const XrFrameEndInfo info = {XR_TYPE_FRAME_END_INFO, nullptr, 1, XR_ENVIRONMENT_BLEND_MODE_OPAQUE, 0, nullptr};
        return EndFrame(session, &info);
    }
};

TEST_F(SimulatorSession, LivesFromIdleToExiting) {
    const XrSession session = MakeSession();
    EXPECT_THAT(StatesTold(), ElementsAre(XR_SESSION_STATE_IDLE, XR_SESSION_STATE_READY));
    Begin(session);
    EXPECT_THAT(StatesTold(),
                ElementsAre(XR_SESSION_STATE_SYNCHRONIZED, XR_SESSION_STATE_VISIBLE, XR_SESSION_STATE_FOCUSED));
    EXPECT_EQ(RequestExitSession(session), XR_SUCCESS);
    EXPECT_EQ(RequestExitSession(session), XR_SUCCESS);
    EXPECT_THAT(StatesTold(),
                ElementsAre(XR_SESSION_STATE_VISIBLE, XR_SESSION_STATE_SYNCHRONIZED, XR_SESSION_STATE_STOPPING));
    EXPECT_EQ(EndSession(session), XR_SUCCESS);
    EXPECT_THAT(StatesTold(), ElementsAre(XR_SESSION_STATE_IDLE, XR_SESSION_STATE_EXITING));
}

TEST_F(SimulatorSession, CallsOutOfOrderAreRefused) {
    const XrSession session = MakeSession();
    EXPECT_EQ(EndSession(session), XR_ERROR_SESSION_NOT_RUNNING);
    EXPECT_EQ(RequestExitSession(session), XR_ERROR_SESSION_NOT_RUNNING);
    EXPECT_EQ(TryWait(session), XR_ERROR_SESSION_NOT_RUNNING);

    Begin(session);
    EXPECT_EQ(EndSession(session), XR_ERROR_SESSION_NOT_STOPPING);
    EXPECT_EQ(BeginFrame(session, nullptr), XR_ERROR_CALL_ORDER_INVALID) << "nobody waited for it";
    EXPECT_EQ(TryWait(session), XR_SUCCESS);
    EXPECT_EQ(TryEnd(session), XR_ERROR_CALL_ORDER_INVALID) << "nobody began it";
    EXPECT_EQ(BeginFrame(session, nullptr), XR_SUCCESS);
    EXPECT_EQ(TryWait(session), XR_SUCCESS) << "frames may overlap";
    EXPECT_EQ(BeginFrame(session, nullptr), XR_FRAME_DISCARDED);
    EXPECT_EQ(TryEnd(session), XR_SUCCESS);
}

TEST_F(SimulatorSession, EventsOfADestroyedSessionAreForgotten) {
    const XrSession first = MakeSession();
    const XrSession second = MakeSession();
    Begin(second);
    DestroySession(first);
    EXPECT_THAT(StatesTold(), ElementsAre(XR_SESSION_STATE_IDLE, XR_SESSION_STATE_READY, XR_SESSION_STATE_SYNCHRONIZED,
                                          XR_SESSION_STATE_VISIBLE, XR_SESSION_STATE_FOCUSED));
}

TEST_F(SimulatorSession, WaitBlocksUntilTheFrameBeforeWasBegunOrTheSessionEnds) {
    const XrSession session = MakeFocusedSession();
    const auto expect_block = [&](const std::function<void()>& end_it, XrResult result) {
        EXPECT_EQ(TryWait(session), XR_SUCCESS);
        auto second = std::async(std::launch::async, [&] { return TryWait(session); });
        EXPECT_EQ(second.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
        end_it();
        ASSERT_EQ(second.wait_for(std::chrono::seconds(5)), std::future_status::ready);
        EXPECT_EQ(second.get(), result);
    };
    expect_block([&] { BeginFrame(session, nullptr); }, XR_SUCCESS);
    BeginFrame(session, nullptr);
    expect_block([&] { DestroyInstance(std::exchange(instance_, XR_NULL_HANDLE)); }, XR_ERROR_HANDLE_INVALID);
}

}  // namespace
}  // namespace simulator_test
