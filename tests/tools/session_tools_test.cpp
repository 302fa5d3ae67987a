#include "tools/session_tools.h"

#include <gmock/gmock.h>

#include <optional>
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

class SessionTools : public testing::Test {
 protected:
    SessionTools() { Renew(ContextManager::instance()); }
    ~SessionTools() override { Renew(ContextManager::instance()); }

    static void OpenSession(std::uint64_t handle) {
        ContextManager::instance().updateSessionState(
            {true, HandleFromValue<XrSession>(handle), XR_SESSION_STATE_FOCUSED, 1});
    }
};

TEST_F(SessionTools, TakeTheActiveSessionUnlessAHandleIsANumber) {
    OpenSession(kActive);
    struct Row {
        const char* arguments;
        const char* error;  // null where the active session is taken
    };
    constexpr char kNullHandle[] = "Error: Provided session handle is null.";
    const std::vector<Row> rows = {
        {"{}", nullptr},
        {"[]", nullptr},
        {"null", nullptr},
        {R"(["session_handle"])", nullptr},
        {R"({"session_handle": "48879"})", nullptr},
        {R"({"session_handle": null})", nullptr},
        {R"({"session_handle": true})", nullptr},
        {R"({"session_handle": 48879})", nullptr},
        {R"({"session_handle": 48879.75})", nullptr},
        {R"({"session_handle": 0})", kNullHandle},
        {R"({"session_handle": -48879})", kNullHandle},
        {R"({"session_handle": 0.5})", kNullHandle},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.arguments);
        const SessionResolution resolution = resolve_session_from_arguments(mcp::parse_json(row.arguments), "a_tool");
        EXPECT_EQ(resolution.valid, row.error == nullptr);
        EXPECT_EQ(HandleValue(resolution.session), row.error ? 0 : kActive);
        EXPECT_EQ(resolution.error, row.error ? row.error : "");
    }
}

TEST_F(SessionTools, ReadAHandleOfAnySizeAsUnsigned) {
    OpenSession(0xFFFFFFFFFFFFFFFF);
    for (const char* number : {"18446744073709551615", "18446744073709551616", "1e300"}) {
        const json arguments = mcp::parse_json(std::string(R"({"session_handle":)") + number + "}");
        EXPECT_TRUE(resolve_session_from_arguments(arguments, "a_tool").valid) << number;
    }
}

TEST_F(SessionTools, RefuseWithoutAnActiveSession) {
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

constexpr char kStaleReport[] =
    R"(STALE SESSION HANDLE ERROR

## Problem
The session_handle you provided (0x1f) refers to an old/stale XR session that is no longer active. )"
    R"(The XR application has restarted or created a new session since you obtained this handle.

## Current State
- Your provided session handle: 0x1f
- Current active session handle: 0xbeef
- Session generation (restart count): 2
- Last session restart time: 2026-01-02T03:04:05.006Z

## Root Cause
This typically happens when:
1. The XR application was restarted (closed and reopened)
2. The user removed and re-wore the headset, causing a session reset
3. The application internally recreated its XR session
4. You are using a session handle from a previous conversation or cached state

## How to Fix
1. Call 'openxr_get_session_info' to retrieve the current valid session handle
2. Use the new session handle returned in the 'handle' field for subsequent tool calls
3. Do NOT reuse session handles from previous tool calls or cached data - always fetch fresh session info when needed

## Example Recovery
```
// Step 1: Get current session info
result = openxr_get_session_info()
new_session_handle = result.handle

// Step 2: Use the new handle
a_tool(session_handle=new_session_handle, ...)
```
)";

TEST_F(SessionTools, ReportAStaleHandle) {
    const FakeClock clock(1'767'323'045'006'000'000, 0);
    OpenSession(0x1f);
    OpenSession(kActive);
    LogCapture log;
    const SessionResolution resolution = resolve_session_from_arguments(json{{"session_handle", 0x1f}}, "a_tool");
    EXPECT_FALSE(resolution.valid);
    EXPECT_EQ(resolution.session, XrSession{});
    EXPECT_EQ(resolution.error, kStaleReport);
    EXPECT_THAT(log.take(),
                ElementsAre("ERROR a_tool: Provided session handle does not match the active session. Provided: 0x1f, "
                            "Expected: 0xbeef, Session generation: 2"));
}

TEST_F(SessionTools, ReportNoRestartTimeThatIsNotKnown) {
    const FakeClock clock(0, 0);
    OpenSession(kActive);
    const std::string report = validate_session_handle(HandleFromValue<XrSession>(1), "a_tool").error;
    EXPECT_THAT(report, testing::HasSubstr("- Session generation (restart count): 1\n\n## Root Cause\n"));
}

TEST_F(SessionTools, FindReferenceSpacesByExactName) {
    SessionContext context(XR_NULL_HANDLE);
    context.viewSpace = HandleFromValue<XrSpace>(1);
    context.localSpace = HandleFromValue<XrSpace>(2);
    context.stageSpace = HandleFromValue<XrSpace>(3);
    context.localFloorSpace = HandleFromValue<XrSpace>(4);
    const std::vector<std::pair<std::string, std::uint64_t>> rows = {
        {"view", 1}, {"local", 2}, {"stage", 3}, {"local_floor", 4}, {"Stage", 0}, {"", 0}, {"local ", 0},
    };
    for (const auto& [name, handle] : rows) {
        EXPECT_EQ(HandleValue(reference_space_for_name(name, context)), handle) << name;
    }
}

TEST_F(SessionTools, DefaultToTheFloorWhereTheInstanceHasIt) {
    EXPECT_EQ(default_base_space(), "local");
    InstanceState instance;
    instance.valid = true;
    instance.availableExtensions = {"XR_EXT_local_floor"};
    ContextManager::instance().setInstanceState(instance);
    EXPECT_EQ(default_base_space(), "local");
    instance.enabledExtensions = {"XR_EXT_local_floor"};
    ContextManager::instance().setInstanceState(instance);
    EXPECT_EQ(default_base_space(), "local_floor");
}

}  // namespace
}  // namespace orvanic_xr
