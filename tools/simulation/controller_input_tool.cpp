// openxr_set_controller_input presses buttons, pulls triggers and moves thumbstick axes of the simulated
// controllers. With `auto_release` a short-lived thread lets go again after the hold, so that a press is one call.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "diagnostics/number_text.h"
#include "layer/dispatch/dispatch.h"
#include "layer/dispatch/paths.h"
#include "tools/session_lookup.h"
#include "tools/simulation/conformance_automation.h"
#include "tools/simulation/frame_clock.h"
#include "tools/simulation/simulation_arguments.h"
#include "tools/simulation/simulation_tools.h"
#include "tools/tool_results.h"

namespace orvanic_xr {
namespace {

constexpr char kName[] = "openxr_set_controller_input";

constexpr char kDescription[] =
    "Set the value of a controller input. For buttons (A, B, X, Y, Menu, System, ThumbstickClick), the value should "
    "be 0 (released) or 1 (pressed). For analog inputs (Trigger, Grip), the value should be a floating point number "
    "from 0.0 to 1.0. For bidirectional analog inputs (Thumbstick), the value should be a floating point number from "
    "-1.0 to 1.0.";

constexpr char kLeftComponents[] = "'X', 'Y', 'Menu', 'Thumbstick', 'ThumbstickClick', 'Trigger', 'Grip'";
constexpr char kRightComponents[] = "'A', 'B', 'System', 'Thumbstick', 'ThumbstickClick', 'Trigger', 'Grip'";

enum class InputKind { kButton, kAnalog, kThumbstick };

// One row a component: which hands have it, what state it takes, and its path behind the hand's "/input/".
struct Component {
    const char* name;
    bool left;
    bool right;
    InputKind kind;
    const char* suffix;  // of the thumbstick: the part before the axis
};

constexpr Component kComponents[] = {
    {"X", true, false, InputKind::kButton, "x/click"},
    {"Y", true, false, InputKind::kButton, "y/click"},
    {"Menu", true, false, InputKind::kButton, "menu/click"},
    {"A", false, true, InputKind::kButton, "a/click"},
    {"B", false, true, InputKind::kButton, "b/click"},
    {"System", false, true, InputKind::kButton, "system/click"},
    {"Thumbstick", true, true, InputKind::kThumbstick, "thumbstick/"},
    {"ThumbstickClick", true, true, InputKind::kButton, "thumbstick/click"},
    {"Trigger", true, true, InputKind::kAnalog, "trigger/value"},
    {"Grip", true, true, InputKind::kAnalog, "squeeze/value"},
};

const Component* FindComponent(const std::string& name, const std::string& hand) {
    const auto matches = [&](const Component& row) {
        return row.name == name && (hand == "left" ? row.left : row.right);
    };
    const auto found = std::find_if(std::begin(kComponents), std::end(kComponents), matches);
    return found == std::end(kComponents) ? nullptr : found;
}

// One input of one controller of one session; a release thread keeps a copy.
struct ControllerInput {
    std::shared_ptr<SessionContext> session;
    std::string hand;
    const Component* component = nullptr;
    std::string sub_component;  // "X" or "Y" for the thumbstick, else empty
    std::string top_level_path;
    std::string input_source_path;
};

void BuildPaths(ControllerInput& input) {
    input.top_level_path = "/user/hand/" + input.hand;
    input.input_source_path = input.top_level_path + "/input/" + input.component->suffix;
    if (input.component->kind == InputKind::kThumbstick)
        input.input_source_path += input.sub_component == "X" ? "x" : "y";
}

// ", sub_component=X" for the thumbstick, nothing for the others.
std::string AxisText(const ControllerInput& input) {
    return input.component->kind == InputKind::kThumbstick ? ", sub_component=" + input.sub_component : std::string();
}

XrResult SetState(const ControllerInput& input, double value) {
    const auto pass = input.session->EnterRuntime();
    if (!pass) return XR_ERROR_HANDLE_INVALID;
    const XrPath device = PathFromText(input.session->instance(), input.top_level_path);
    const XrPath source = PathFromText(input.session->instance(), input.input_source_path);
    const DispatchHolder& next = DispatchHolder::instance();
    if (input.component->kind == InputKind::kButton) {
        const auto set_bool = next.Resolve<PFN_xrSetInputDeviceStateBoolEXT>("xrSetInputDeviceStateBoolEXT");
        const XrBool32 pressed = value > 0.5 ? XR_TRUE : XR_FALSE;
        return set_bool ? set_bool(input.session->session, device, source, pressed) : XR_ERROR_FUNCTION_UNSUPPORTED;
    }
    const auto set_float = next.Resolve<PFN_xrSetInputDeviceStateFloatEXT>("xrSetInputDeviceStateFloatEXT");
    return set_float ? set_float(input.session->session, device, source, static_cast<float>(value))
                     : XR_ERROR_FUNCTION_UNSUPPORTED;
}

OperationResult SetControllerInputState(const ControllerInput& input, double value) {
    const XrResult result = SetState(input, value);
    if (XR_FAILED(result)) {
        const char* function = input.component->kind == InputKind::kButton ? "xrSetInputDeviceStateBoolEXT"
                                                                           : "xrSetInputDeviceStateFloatEXT";
        return Failed(std::string(function) + " failed with error code: " + std::to_string(static_cast<int>(result)));
    }
    LogInfo("Successfully set controller input: hand=", input.hand, ", component=", input.component->name,
            AxisText(input), ", value=", FixedText(value));
    return Succeeded();
}

// Milliseconds of a hold in seconds; what the type can't hold is cut to what it can.
std::chrono::milliseconds HoldTime(double seconds) {
    constexpr double kLongest = 9.0e15;  // some 285,000 years: milliseconds, exact in a double
    return std::chrono::milliseconds(static_cast<std::int64_t>(std::min(seconds * 1000.0, kLongest)));
}

// Sleeps until the monotonic clock has gone on by `hold`; a deadline beyond the clock's end is its end.
void SleepFor(std::chrono::milliseconds hold) {
    using std::chrono::steady_clock;
    const auto now = steady_clock::now();
    const auto longest = std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::time_point::max() - now);
    std::this_thread::sleep_until(hold < longest ? now + hold : steady_clock::time_point::max());
}

// It may come after the session, the instance or the runtime is gone, and then calls nothing. It keeps the context, for
// a later session may have the same handle.
void Release(const ControllerInput& input) noexcept {
    try {
        if (input.session->ended()) {
            LogError(kName, " auto-release skipped: session no longer valid");
            return;
        }
        const OperationResult released = SetControllerInputState(input, 0.0);
        if (!released.ok) LogError(kName, " auto-release failed: ", released.error);
    } catch (...) {
        LogError(kName, " auto-release failed: exception");
    }
}

// The body of a release thread, which nobody joins.
void ReleaseAfter(const ControllerInput& input, std::chrono::milliseconds hold) noexcept {
    if (hold.count() > 0) SleepFor(hold);
    Release(input);
}

// Why the value does not suit the component, or nothing if it does.
std::optional<std::string> RangeError(const Component& component, double value) {
    const auto got = [&] { return FixedText(value); };
    switch (component.kind) {
        case InputKind::kButton:
            if (value == 0.0 || value == 1.0) return std::nullopt;
            return "Button value must be 0 (released) or 1 (pressed), got " + got();
        case InputKind::kAnalog:
            if (value >= 0.0 && value <= 1.0) return std::nullopt;
            return std::string(component.name) + " value must be between 0.0 and 1.0, got " + got();
        case InputKind::kThumbstick:
            if (value >= -1.0 && value <= 1.0) return std::nullopt;
            return "Thumbstick value must be between -1.0 and 1.0, got " + got();
    }
    return std::nullopt;
}

// Why the `sub_component` does not suit the component, or nothing; fills the input's axis.
std::optional<std::string> ReadSubComponent(const json& arguments, ControllerInput& input) {
    const bool thumbstick = input.component->kind == InputKind::kThumbstick;
    const json* given = find_argument(arguments, "sub_component");
    if (!given || !given->is_string()) {
        if (thumbstick) return "'sub_component' is required for 'Thumbstick'. Must be 'X' or 'Y'.";
        return std::nullopt;
    }
    if (!thumbstick) return "'sub_component' is only valid for 'Thumbstick' component.";
    input.sub_component = given->get<std::string>();
    if (input.sub_component == "X" || input.sub_component == "Y") return std::nullopt;
    return "'sub_component' must be 'X' or 'Y' for Thumbstick, got '" + ShownPeerText(input.sub_component) + "'.";
}

// Starts the release thread if the call asks for one.
bool StartAutoRelease(const json& arguments, const ControllerInput& input) {
    if (!flag_argument(arguments, "auto_release")) return false;
    double hold_seconds = 0.2;
    const json* hold = find_argument(arguments, "hold_duration");
    if (hold && hold->is_number() && hold->get<double>() > 0.0) hold_seconds = hold->get<double>();
    if (FrameClock& clock = FrameClock::instance(); clock.is_on()) {
        constexpr double kLongest = 9e9;  // nanoseconds that a duration holds
        clock.After(static_cast<std::int64_t>(std::min(hold_seconds, kLongest) * 1e9), [input] { Release(input); });
        return true;
    }
    try {
        std::thread(ReleaseAfter, input, HoldTime(hold_seconds)).detach();
    } catch (...) {
        LogWarning(kName, ": no thread to be had for the hold, letting go at once");
        const OperationResult released = SetControllerInputState(input, 0.0);
        if (!released.ok) LogError(kName, " auto-release failed: ", released.error);
        throw;
    }
    return true;
}

json handle_set_controller_input(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kName, " tool called");
    ControllerInput input;
    const HandArgument hand = read_hand_argument(arguments);
    if (!hand.hand) return refuse(kName, hand.error);
    input.hand = *hand.hand;
    const json* component = find_argument(arguments, "component");
    if (!component || !component->is_string()) {
        return refuse(kName, "Missing or invalid 'component' parameter. Must be a string.");
    }
    const std::string component_name = component->get<std::string>();
    input.component = FindComponent(component_name, input.hand);
    if (!input.component) {
        return refuse(kName, "Component '" + ShownPeerText(component_name) + "' is not valid for " + input.hand +
                                 " controller. Valid components: " +
                                 (input.hand == "left" ? kLeftComponents : kRightComponents) + ".");
    }
    if (const auto error = ReadSubComponent(arguments, input)) return refuse(kName, *error);
    const json* given_value = find_argument(arguments, "value");
    if (!given_value || !given_value->is_number()) {
        return refuse(kName, "Missing or invalid 'value' parameter. Must be a number.");
    }
    const double value = given_value->get<double>();
    if (const auto error = RangeError(*input.component, value)) return refuse(kName, *error);
    const SessionResolution resolution = resolve_session_from_arguments(arguments, kName);
    if (!resolution.valid) return refuse(kName, resolution.error);
    LogInfo(kName, ": hand=", input.hand, ", component=", component_name, AxisText(input),
            ", value=", FixedText(value));
    input.session = ContextManager::instance().getSessionContext(resolution.session);
    if (!input.session || input.session->ended()) {
        return refuse(kName, "SessionContext is not valid for the active session.");
    }
    const OperationResult active = EnsureConformanceAutomationActive(*input.session);
    if (!active.ok) return refuse(kName, active.error);
    BuildPaths(input);
    const OperationResult set = SetControllerInputState(input, value);
    if (!set.ok) return refuse(kName, set.error);
    const bool auto_release = StartAutoRelease(arguments, input);
    return make_json_tool_result({{"success", true}, {"auto_release", auto_release}});
}

}  // namespace

ToolEntry make_openxr_set_controller_input_tool_entry() {
    ToolBuilder builder(kName, kDescription);
    builder.add_number_parameter("session_handle", kSessionHandleDescription, false)
        .add_string_parameter("hand", "Which hand's controller to modify. Must be 'left' or 'right'.", true)
        .add_string_parameter("component",
                              "The component to set the value for. For left controller: 'X', 'Y', 'Menu', "
                              "'Thumbstick', 'ThumbstickClick', 'Trigger', 'Grip'. For right controller: 'A', 'B', "
                              "'System', 'Thumbstick', 'ThumbstickClick', 'Trigger', 'Grip'.",
                              true)
        .add_string_parameter("sub_component",
                              "Sub-component for multi-axis inputs. Required for 'Thumbstick' (must be 'X' or 'Y'). "
                              "Must not be provided for other components.",
                              false)
        .add_number_parameter("value",
                              "The value to set. For buttons: 0 (released) or 1 (pressed). For Trigger/Grip: 0.0 to "
                              "1.0. For Thumbstick: -1.0 to 1.0.",
                              true)
        .add_boolean_parameter("auto_release",
                               "If true, the input is set to the given value for 'hold_duration' seconds, then "
                               "automatically reset to 0. Useful for simulating brief button presses, trigger pulls, "
                               "or thumbstick moves. Default: false.",
                               false)
        .add_number_parameter("hold_duration",
                              "Duration in seconds to hold the input value before resetting to 0. Only used when "
                              "'auto_release' is true. Default: 0.2.",
                              false)
        .set_hints(false, false, false, true);
    return {builder.build(), handle_set_controller_input, conformance_automation_enabled};
}

}  // namespace orvanic_xr
