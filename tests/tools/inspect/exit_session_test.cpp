#include <string>

#include "tests/tools/session_fixture.h"
#include "tools/inspect/inspect_tools.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ExitSession : public SessionTest {
 protected:
    static std::string Exit(const std::string& arguments) {
        return AnswerText(make_openxr_exit_session_tool_entry, arguments);
    }
};

TEST_F(ExitSession, AsksTheRuntimeAndTellsWhatItSaid) {
    EXPECT_EQ(Exit("[]"), "XR session exit requested successfully. Application should exit soon.");
    EXPECT_THAT(runtime_.take_calls(), ElementsAre("xrRequestExitSession(session1)"));
    EXPECT_THAT(log_.take(), ElementsAre("INFO Calling xrRequestExitSession with session handle: 0x2001",
                                         "INFO xrRequestExitSession succeeded"));
    runtime_.answer("xrRequestExitSession", XR_ERROR_SESSION_NOT_RUNNING);
    EXPECT_EQ(Exit(R"({"session_handle": 8193})"),
              "Error: Failed to request session exit (error code: XR_ERROR_SESSION_NOT_RUNNING).");
    EXPECT_THAT(log_.take(),
                ElementsAre("INFO Calling xrRequestExitSession with session handle: 0x2001",
                            "ERROR xrRequestExitSession failed with result: XR_ERROR_SESSION_NOT_RUNNING"));
}

TEST_F(ExitSession, RefusesWhatItCannotDo) {
    EXPECT_THAT(Exit(R"({"session_handle": 43})"), testing::StartsWith("STALE SESSION HANDLE ERROR\n"));
    EXPECT_THAT(runtime_.take_calls(), IsEmpty());
    runtime_.lack("xrRequestExitSession");
    EXPECT_EQ(Exit("{}"), "Error: xrRequestExitSession function is not available.");
    EXPECT_EQ(log_.take().back(), "ERROR openxr_exit_session: xrRequestExitSession function is null");
    FakeRuntime::uninstall();
    EXPECT_EQ(Exit("{}"), "Error: Dispatch table is not valid.");
    EXPECT_EQ(log_.take().back(), "ERROR openxr_exit_session: dispatch table is not valid");
    ContextManager::instance().updateSessionState({});
    EXPECT_EQ(Exit("{}"), "Error: No valid XR session is currently active.");
}

}  // namespace
}  // namespace orvanic_xr
