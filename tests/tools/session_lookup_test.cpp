#include "tools/session_lookup.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "context/context_manager.h"
#include "diagnostics/clock.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t kActive = 0xBEEF;

class SessionLookups : public testing::Test {
 protected:
    SessionLookups() { Renew(ContextManager::instance()); }
    ~SessionLookups() override { Renew(ContextManager::instance()); }

    static void OpenSession(std::uint64_t handle) {
        ContextManager::instance().updateSessionState(
            {true, HandleFromValue<XrSession>(handle), XR_SESSION_STATE_FOCUSED, 1});
    }
};

TEST_F(SessionLookups, TakeTheActiveSessionUnlessAHandleIsANumber) {
    OpenSession(kActive);
    struct Row {
        const char* arguments;
        const char* error;  // null where the active session is taken
    };
    constexpr char kNullHandle[] = "Error: Provided session handle is null.";
    const std::vector<Row> rows = {
        {"{}", nullptr},
        {"[]", nullptr},
        {R"({"session_handle": "48879"})", nullptr},
        {R"({"session_handle": 48879})", nullptr},
        {R"({"session_handle": 48879.75})", nullptr},
        {R"({"session_handle": 0})", kNullHandle},
        {R"({"session_handle": -48879})", kNullHandle},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.arguments);
        const SessionResolution resolution = resolve_session_from_arguments(mcp::parse_json(row.arguments), "a_tool");
        EXPECT_EQ(resolution.valid, row.error == nullptr);
        EXPECT_EQ(HandleValue(resolution.session), row.error ? 0 : kActive);
        EXPECT_EQ(resolution.error, row.error ? row.error : "");
    }
}

TEST_F(SessionLookups, RefuseWithoutAnActiveSession) {
    LogCapture log;
    EXPECT_EQ(resolve_session_from_arguments(json::object(), "a_tool").error,
              "Error: No valid XR session is currently active.");
    EXPECT_THAT(log.take(), IsEmpty());

    const XrSession session = HandleFromValue<XrSession>(kActive);
    EXPECT_EQ(validate_session_handle(session, "a_tool").error, "Error: No valid session is currently active.");
    EXPECT_THAT(log.take(), ElementsAre("ERROR a_tool: No valid session is currently active in ContextManager"));

    EXPECT_EQ(validate_session_handle(XR_NULL_HANDLE, "a_tool").error, "Error: Provided session handle is null.");
    EXPECT_THAT(log.take(), ElementsAre("WARNING a_tool: provided session handle is null"));
}

TEST_F(SessionLookups, ReportAStaleHandle) {
    const FakeClock clock(1'767'323'045'006'000'000, 0);
    OpenSession(0x1f);
    OpenSession(kActive);
    LogCapture log;
    const SessionResolution resolution = resolve_session_from_arguments(json{{"session_handle", 0x1f}}, "a_tool");
    EXPECT_FALSE(resolution.valid);
    EXPECT_EQ(resolution.session, XrSession{});
    EXPECT_THAT(resolution.error,
                testing::StartsWith("STALE SESSION HANDLE ERROR\n\n## Problem\nThe session_handle you "
                                    "provided (0x1f) refers to an old/stale XR session"));
    EXPECT_THAT(resolution.error, testing::HasSubstr("- Current active session handle: 0xbeef\n"
                                                     "- Session generation (restart count): 2\n"
                                                     "- Last session restart time: 2026-01-02T03:04:05.006Z\n"));
    EXPECT_THAT(resolution.error, testing::EndsWith("\na_tool(session_handle=new_session_handle, ...)\n```\n"));
    EXPECT_THAT(log.take(),
                ElementsAre("ERROR a_tool: Provided session handle does not match the active session. Provided: 0x1f, "
                            "Expected: 0xbeef, Session generation: 2"));
}

}  // namespace
}  // namespace orvanic_xr
