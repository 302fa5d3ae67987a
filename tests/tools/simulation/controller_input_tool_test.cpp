#include <pthread.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <system_error>

#include "tests/tools/simulation/simulation_fixture.h"
#include "tools/simulation/frame_clock.h"

namespace orvanic_xr {
namespace {

using mcp::json;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

class ControllerInputTool : public SimulationTest {
 protected:
    std::string Set(const json& arguments) { return Call(make_openxr_set_controller_input_tool_entry, arguments); }
};

TEST_F(ControllerInputTool, RefusesInTheOrderOfItsChecks) {
    ContextManager::instance().updateSessionState({});  // every refusal but the last comes before the session
    struct Case {
        json arguments;
        const char* answer;
    };
    const Case cases[] = {
        {json::array(), "Missing or invalid 'hand' parameter. Must be 'left' or 'right'."},
        {{{"hand", "left"}, {"component", 1}}, "Missing or invalid 'component' parameter. Must be a string."},
        {{{"hand", "right"}, {"component", "Y"}},
         "Component 'Y' is not valid for right controller. Valid components: 'A', 'B', 'System', 'Thumbstick', "
         "'ThumbstickClick', 'Trigger', 'Grip'."},
        {{{"hand", "left"}, {"component", "trigger"}},
         "Component 'trigger' is not valid for left controller. Valid components: 'X', 'Y', 'Menu', 'Thumbstick', "
         "'ThumbstickClick', 'Trigger', 'Grip'."},
        {{{"hand", "left"}, {"component", "Trigger"}, {"sub_component", "X"}},
         "'sub_component' is only valid for 'Thumbstick' component."},
        {{{"hand", "left"}, {"component", "Thumbstick"}, {"sub_component", "x"}},
         "'sub_component' must be 'X' or 'Y' for Thumbstick, got 'x'."},
        {{{"hand", "left"}, {"component", "X"}, {"value", "1"}},
         "Missing or invalid 'value' parameter. Must be a number."},
        {{{"hand", "left"}, {"component", "X"}, {"value", 0.5}},
         "Button value must be 0 (released) or 1 (pressed), got 0.500000"},
        {{{"hand", "left"}, {"component", "Trigger"}, {"value", 1.01}},
         "Trigger value must be between 0.0 and 1.0, got 1.010000"},
        {{{"hand", "left"}, {"component", "Thumbstick"}, {"sub_component", "Y"}, {"value", -1.5}},
         "Thumbstick value must be between -1.0 and 1.0, got -1.500000"},
        {{{"hand", "left"}, {"component", "X"}, {"value", 1}}, "Error: No valid XR session is currently active."},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.answer);
        EXPECT_EQ(Set(row.arguments), std::string("Error: ") + row.answer);
        EXPECT_EQ(log_.take().back(), std::string("ERROR openxr_set_controller_input: ") + row.answer);
    }
}

TEST_F(ControllerInputTool, SetsTheStateOfEachComponent) {
    Activate();
    struct Case {
        std::string hand;
        const char* component;
        const char* axis;
        double value;
        const char* kind;
        const char* input;  // and the value that it gets
    };
    const Case cases[] = {
        {"left", "X", nullptr, 1, "Bool", "x/click, 1"},
        {"right", "System", nullptr, 0, "Bool", "system/click, 0"},
        {"left", "Thumbstick", "X", -1, "Float", "thumbstick/x, -1"},
        {"left", "Thumbstick", "Y", 0.5, "Float", "thumbstick/y, 0.5"},
        {"right", "Grip", nullptr, 0.25, "Float", "squeeze/value, 0.25"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.input);
        json arguments = {{"hand", row.hand}, {"component", row.component}, {"value", row.value}};
        if (row.axis) arguments["sub_component"] = row.axis;
        arguments["auto_release"] = "true";  // no boolean: nothing is released
        EXPECT_EQ(Set(arguments), R"({"success":true,"auto_release":false})");
        const std::string function = std::string("xrSetInputDeviceState") + row.kind + "EXT";
        const std::string device = "/user/hand/" + row.hand;
        EXPECT_THAT(runtime_.calls(function),
                    ElementsAre(function + "(session1, " + device + ", " + device + "/input/" + row.input + ")"));
        runtime_.take_calls();
    }
    runtime_.answer("xrSetInputDeviceStateBoolEXT", XR_ERROR_PATH_UNSUPPORTED);
    EXPECT_EQ(Set({{"hand", "left"}, {"component", "X"}, {"value", 1}}),
              "Error: xrSetInputDeviceStateBoolEXT failed with error code: -22");
    runtime_.lack("xrSetInputDeviceStateFloatEXT");
    EXPECT_EQ(Set({{"hand", "left"}, {"component", "Trigger"}, {"value", 1}}),
              "Error: xrSetInputDeviceStateFloatEXT failed with error code: -7");
}

TEST_F(ControllerInputTool, ReleasesByItselfAfterTheHold) {
    Activate();
    EXPECT_EQ(Set({{"hand", "right"},
                   {"component", "Trigger"},
                   {"value", 1},
                   {"auto_release", true},
                   {"hold_duration", 0.001}}),
              R"({"success":true,"auto_release":true})");
    ASSERT_TRUE(WaitFor("INFO Successfully set controller input: hand=right, component=Trigger, value=0.000000"));
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceStateFloatEXT"),
                ElementsAre(EndsWith("trigger/value, 1)"), EndsWith("trigger/value, 0)")));
    // Holds of any size start a thread and nothing else; these sleep until the end of the process.
    for (const double hold : {1e308, 1e18, 9.3e9}) {
        EXPECT_EQ(
            Set({{"hand", "right"}, {"component", "A"}, {"value", 1}, {"auto_release", true}, {"hold_duration", hold}}),
            R"({"success":true,"auto_release":true})");
    }
}

TEST_F(ControllerInputTool, HoldsForSoManyFramesByTheFrameClock) {
    Activate();
    setenv("ORVANICXR_FRAME_CLOCK", "1", 1);
    FrameClock& clock = FrameClock::instance();
    clock.ReadSwitch();
    clock.Advance(100, 10);
    Set({{"hand", "left"}, {"component", "X"}, {"value", 1}, {"auto_release", true}, {"hold_duration", 29e-9}});
    for (const XrTime shown : {110, 120}) clock.Advance(shown, 10);
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceStateBoolEXT"), ElementsAre(EndsWith(", 1)")));
    for (const XrTime shown : {130, 140}) clock.Advance(shown, 10);
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceStateBoolEXT"), ElementsAre(EndsWith(", 1)"), EndsWith(", 0)")));
    unsetenv("ORVANICXR_FRAME_CLOCK");
    clock.ReadSwitch();
}

TEST_F(ControllerInputTool, LetsGoAtOnceIfNoThreadCanHold) {
    Activate();
    pthread_attr_t before;
    ASSERT_EQ(pthread_getattr_default_np(&before), 0);
    pthread_attr_t impossible = before;
    pthread_attr_setstacksize(&impossible, std::size_t{1} << 46);
    pthread_setattr_default_np(&impossible);
    EXPECT_THROW(Set({{"hand", "right"}, {"component", "A"}, {"value", 1}, {"auto_release", true}}), std::system_error);
    pthread_setattr_default_np(&before);
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceStateBoolEXT"), ElementsAre(EndsWith(", 1)"), EndsWith(", 0)")));
}

TEST_F(ControllerInputTool, LeavesWhatEndedDuringTheHoldAlone) {
    const std::function<void()> ends[] = {
        [&] { ContextManager::instance().removeSessionContext(session_); },
        [&] { ContextManager::instance().closeSessions(runtime_.instance()); },
        [&] {
            ContextManager::instance().removeSessionContext(session_);
            ContextManager::instance().createSessionContext(session_);  // the next one has the same handle
        },
    };
    for (const auto& end : ends) {
        SCOPED_TRACE(&end - ends);
        BeginSession();
        Activate();
        Set({{"hand", "left"}, {"component", "X"}, {"value", 1}, {"auto_release", true}, {"hold_duration", 0.1}});
        runtime_.take_calls();
        end();
        EXPECT_TRUE(WaitFor("ERROR openxr_set_controller_input auto-release skipped: session no longer valid"));
        EXPECT_THAT(runtime_.calls("xrSetInputDeviceStateBoolEXT"), IsEmpty());
    }
}

class InteractionProfileTool : public SimulationTest {
 protected:
    std::string Get(const json& arguments) {
        return Call(make_openxr_get_active_interaction_profile_tool_entry, arguments);
    }
};

TEST_F(InteractionProfileTool, TellsOneEntryAHand) {
    const XrPath profile = runtime_.path("/interaction_profiles/kest/pronto_controller_plus");
    const XrPath left = runtime_.path("/user/hand/left");
    runtime_.on("xrGetCurrentInteractionProfile",
                [profile, left](XrSession, XrPath hand, XrInteractionProfileState* state) {
                    state->interactionProfile = hand == left ? profile : XR_NULL_PATH;
                    return XR_SUCCESS;
                });
    EXPECT_EQ(
        Get({{"hand", 5}}),
        R"({"left":{"profile":"/interaction_profiles/kest/pronto_controller_plus"},"right":{"profile":null,)"
        R"("note":"No interaction profile currently bound (controller may be offline, or the runtime has not yet )"
        R"(selected one)."}})");
    runtime_.answer("xrGetCurrentInteractionProfile", XR_ERROR_ACTIONSET_NOT_ATTACHED);
    EXPECT_EQ(Get({{"hand", "right"}}),
              R"-({"right":{"error":"xrGetCurrentInteractionProfile failed for /user/hand/right (-46)"}})-");
    runtime_.lack("xrPathToString");
    EXPECT_EQ(Get({{"hand", "left"}}),
              R"({"left":{"error":"Runtime does not expose xrGetCurrentInteractionProfile"}})");
    EXPECT_EQ(Get({{"hand", "Left"}}),
              "Error: Invalid 'hand' parameter. Must be 'left', 'right', or 'both', got 'Left'.");
}

}  // namespace
}  // namespace orvanic_xr
