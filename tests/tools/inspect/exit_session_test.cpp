#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "context/context_manager.h"
#include "layer/dispatch/handles.h"
#include "tests/fakes/fake_runtime.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tests/tools/tool_answer.h"
#include "tools/inspect/inspect_tools.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class ExitSession : public testing::Test {
 protected:
    ExitSession() {
        Renew(ContextManager::instance());
        ContextManager::instance().updateSessionState(
            {true, HandleFromValue<XrSession>(0x2A), XR_SESSION_STATE_FOCUSED, 1});
        log_.take();
    }
    ~ExitSession() override { Renew(ContextManager::instance()); }

    static std::string Call(const std::string& arguments) {
        return AnswerText(make_openxr_exit_session_tool_entry, arguments);
    }

    LogCapture log_;
    FakeRuntime runtime_;
};

TEST_F(ExitSession, AsksTheRuntime) {
    runtime_.answer("xrRequestExitSession", XR_SUCCESS);
    EXPECT_EQ(Call("[]"), "XR session exit requested successfully. Application should exit soon.");
    EXPECT_THAT(runtime_.take_calls(), ElementsAre("xrRequestExitSession(0x2a)"));
    EXPECT_THAT(log_.take(), ElementsAre("INFO Calling xrRequestExitSession with session handle: 0x2a",
                                         "INFO xrRequestExitSession succeeded"));
}

TEST_F(ExitSession, TellsTheRuntimesRefusal) {
    runtime_.answer("xrRequestExitSession", XR_ERROR_SESSION_NOT_RUNNING);
    EXPECT_EQ(Call(R"({"session_handle": 42})"),
              "Error: Failed to request session exit (error code: XR_ERROR_SESSION_NOT_RUNNING).");
    EXPECT_THAT(log_.take(),
                ElementsAre("INFO Calling xrRequestExitSession with session handle: 0x2a",
                            "ERROR xrRequestExitSession failed with result: XR_ERROR_SESSION_NOT_RUNNING"));
}

TEST_F(ExitSession, LeavesTheRuntimeAloneForAStaleHandle) {
    EXPECT_THAT(Call(R"({"session_handle": 43})"), StartsWith("STALE SESSION HANDLE ERROR\n"));
    EXPECT_THAT(runtime_.take_calls(), IsEmpty());
}

TEST_F(ExitSession, RefusesWhatItCannotDo) {
    runtime_.lack("xrRequestExitSession");
    EXPECT_EQ(Call("{}"), "Error: xrRequestExitSession function is not available.");
    EXPECT_THAT(log_.take(), ElementsAre("ERROR openxr_exit_session: xrRequestExitSession function is null"));

    FakeRuntime::uninstall();
    EXPECT_EQ(Call("{}"), "Error: Dispatch table is not valid.");
    EXPECT_THAT(log_.take(), ElementsAre("ERROR openxr_exit_session: dispatch table is not valid"));

    ContextManager::instance().updateSessionState({});
    EXPECT_EQ(Call("{}"), "Error: No valid XR session is currently active.");
}

}  // namespace
}  // namespace orvanic_xr
