// Every function of the runtime fails, throws, is missing or blocks, at every place of an application's life where
// the layer calls it: the call that is at work answers as the table says, and life goes on.
#include <gmock/gmock.h>

#include <future>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "context/context_manager.h"
#include "layer/action_maps.h"
#include "layer/binding_mirror.h"
#include "layer/instance_hooks.h"
#include "tests/fakes/holdings.h"
#include "tests/fakes/renew.h"
#include "tests/fakes/scratch.h"
#include "tests/faults/application.h"
#include "tools/tool_registry.h"

namespace orvanic_xr {
namespace {

using testing::IsEmpty;

constexpr std::int32_t kCode = XR_ERROR_LIMIT_REACHED;  // what a function fails with
constexpr std::int32_t kAnswered = XR_SUCCESS;

// What the step comes to in which a function fails, throws or is not to be had.
struct Told {
    std::int32_t failing;
    std::int32_t throwing;
    std::optional<std::int32_t> missing;  // empty where it can't be
};

constexpr Told kForwarded = {kCode, XR_ERROR_RUNTIME_FAILURE, XR_ERROR_RUNTIME_FAILURE};
constexpr Told kForwardedToDestroy = {kCode, XR_ERROR_HANDLE_INVALID, XR_ERROR_HANDLE_INVALID};
constexpr Told kForwardedToCreate = {kCode, XR_ERROR_RUNTIME_FAILURE, {}};
constexpr Told kForwardedLookUp = {kCode, XR_ERROR_VALIDATION_FAILURE, {}};
// The layer's own, of which the application learns only what is thrown.
constexpr Told kAdded = {XR_SUCCESS, XR_ERROR_RUNTIME_FAILURE, XR_SUCCESS};
constexpr Told kAddedLookUp = {XR_SUCCESS, XR_ERROR_RUNTIME_FAILURE, {}};
// The layer's own in place of the application's, which follows where it fails.
constexpr Told kInstead = {XR_SUCCESS, XR_ERROR_RUNTIME_FAILURE, XR_ERROR_RUNTIME_FAILURE};
// The layer's own, of which the application learns nothing.
constexpr Told kUnnoticed = {XR_SUCCESS, XR_SUCCESS, XR_SUCCESS};
constexpr Told kUnnoticedLookUp = {XR_SUCCESS, XR_SUCCESS, {}};
// A tool answers, with an error in words or without; what is thrown ends its call.
constexpr Told kOfTool = {kAnswered, kToolThrew, kAnswered};

constexpr int kAllCalls = 1000;

struct Row {
    std::string_view step;
    std::string_view function;  // empty for all
    Told told;
    int last = kAllCalls;  // of the calls in that step; the next row of the function goes on behind it
};

constexpr std::string_view kLookUp = "xrGetInstanceProcAddr";

// Calls of which more is to be said than ToldOf does.
constexpr Row kRows[] = {
    {"create instance", kLookUp, kAddedLookUp},
    {"create instance", "xrCreateApiLayerInstance", kForwardedToCreate},
    {"look up", kLookUp, kForwardedLookUp},
    {"create session", "xrCreateSession", kForwarded},
    {"suggest bindings", "xrSuggestInteractionProfileBindings", kForwarded},
    {"suggest bindings", "", kUnnoticed},
    {"attach", "xrAttachSessionActionSets", kForwarded},
    {"attach", "", kUnnoticed},
    {"create hand space", "xrCreateActionSpace", kForwarded},
    {"begin session", "xrBeginSession", kForwarded},
    {"begin session", "xrStartSimulatorCompositorOutputCaptureKESTX1", kUnnoticed},
    {"poll state", "xrPollEvent", kForwarded},
    {"poll containers", "xrPollEvent", kForwarded},
    {"poll entities", "xrPollEvent", kForwarded},
    {"poll components", "xrPollEvent", kForwarded},
    {"frames", "", kForwarded},
    {"sync", "", kForwarded},
    {"locate hand", "", kForwarded},
    {"get pose", "", kForwarded},
    {"get float", "", kForwarded},
    {"get boolean", "", kForwarded},
    {"capture", "xrCaptureSimulatorCompositorOutputKESTX1", kUnnoticed},
    {"locate simulated hand", "", kInstead},
    // The tool finds out where all is, and the application's xrWaitFrame moves it.
    {"move head over time", "xrLocateSpace", kOfTool, 3},
    {"move head over time", "xrLocateSpace", kAdded},
    {"move head over time", "xrStringToPath", kAdded},
    {"move head over time", "xrSetInputDeviceLocationEXT", kAdded},
    {"move head over time", "xrWaitFrame", kForwarded},
    {"move head over time", "xrBeginFrame", kForwarded},
    {"move head over time", "xrEndFrame", kForwarded},
    // The tool presses, and its thread lets go.
    {"press and release", "xrStringToPath", kOfTool, 2},
    {"press and release", "xrStringToPath", kUnnoticed},
    {"press and release", "xrSetInputDeviceStateBoolEXT", kOfTool, 1},
    {"press and release", "xrSetInputDeviceStateBoolEXT", kUnnoticed},
    {"last frame", "", kForwarded},
    {"destroy hand space", "", kForwarded},
    {"destroy action", "", kForwarded},
    {"end session", "xrStopSimulatorCompositorOutputCaptureKESTX1", kUnnoticed},
    {"end session", "xrEndSession", kForwarded},
    {"destroy session", "xrDestroySession", kForwarded},
    {"destroy session", "", kUnnoticed},
    {"destroy instance", "", kForwardedToDestroy},
};

const Told& ToldOf(const Step& step, std::string_view function, int place) {
    for (const Row& row : kRows) {
        const bool is_of_row = row.step == step.name && (row.function.empty() || row.function == function);
        if (is_of_row && place <= row.last) return row.told;
    }
    if (function == kLookUp) return kUnnoticedLookUp;
    return step.is_tool ? kOfTool : kAdded;
}

// A call that a life makes.
struct Call {
    const Step& step;
    std::string function;
    int place;  // among those of the function in that step
};

// How many frames go by is not settled there, and so the time of the last one is not.
constexpr std::string_view kStepWithFrames = "move head over time";
constexpr std::string_view kLastFrame = "last frame";

// A life in which all goes well: what each step called down, and what its tool answered.
struct Recording {
    std::map<std::string_view, std::vector<std::string>> calls;
    std::map<std::string_view, std::map<std::string, int>> counts;
    std::map<std::string_view, std::string> answers;
};

std::string NameOf(const std::string& call) {
    return call.substr(0, call.find('('));
}

Recording RecordLife() {
    Recording recording;
    Application app;
    for (const Step& step : WholeLife()) {
        EXPECT_EQ(step.run(app), XR_SUCCESS) << step.name;
        const std::vector<std::string> calls = app.runtime.take_calls();
        auto& counts = recording.counts[step.name];
        for (const std::string& call : calls) ++counts[NameOf(call)];
        if (const auto lookups = app.runtime.take_lookups().size()) {
            counts[std::string(kLookUp)] = static_cast<int>(lookups);
        }
        if (step.name != kStepWithFrames && step.name != kLastFrame) recording.calls[step.name] = calls;
        if (step.is_tool) recording.answers[step.name] = app.answer;
    }
    EXPECT_THAT(app.runtime.live_handles(), IsEmpty());
    return recording;
}

enum class Fault { kFails, kThrows, kIsMissing };

class Faults : public testing::Test {
 protected:
    Faults() {
        Renew(ContextManager::instance());
        Renew(ActionMaps::instance());
        Renew(BindingMirror::instance());
    }

    std::vector<Call> AllCalls() const {
        std::vector<Call> calls;
        for (const Step& step : WholeLife()) {
            for (const auto& [function, count] : usual_.counts.at(step.name)) {
                for (int place = 1; place <= count; ++place) {
                    // Filling the table takes a look-up for each of its functions, which are all alike.
                    const bool fills_table = step.name == "create instance" && function == kLookUp;
                    if (fills_table && place > 2 && place < count) continue;
                    if (step.name == kStepWithFrames && function.ends_with("Frame") && place > 1) continue;
                    calls.push_back({step, function, place});
                }
            }
        }
        return calls;
    }
    static std::string TextOf(const Call& call) {
        return call.function + " in " + std::string(call.step.name) + ", call " + std::to_string(call.place);
    }

    // Up to the step of that name, in which nothing goes wrong.
    static void LiveUpTo(Application& app, std::string_view name) {
        for (const Step& step : WholeLife()) {
            if (step.name == name) return;
            EXPECT_EQ(step.run(app), XR_SUCCESS) << step.name;
        }
    }

    // The application makes its call again if that failed, then goes on with all that it does itself.
    void LiveOn(Application& app, const Step& faulty, bool again) {
        if (again) {
            EXPECT_EQ(faulty.run(app), XR_SUCCESS) << "again";
            if (faulty.is_tool) {
                EXPECT_EQ(app.answer, usual_.answers.at(faulty.name)) << "again";
            }
        }
        bool after = false;
        for (const Step& step : WholeLife()) {
            if (after && !step.is_tool) {
                EXPECT_EQ(step.run(app), XR_SUCCESS) << step.name << " afterwards";
            }
            if (after && step.name == kLastFrame) {
                EXPECT_EQ(app.Call("openxr_get_session_info"), kAnswered);
                EXPECT_EQ(app.Call("openxr_get_frame_info"), kAnswered);
            }
            after |= step.name == faulty.name;
        }
    }

    // And the life after it is like the one before, and holds on to nothing more.
    void ExpectUsualLife() {
        const Recording next = RecordLife();
        for (const auto& [step, calls] : usual_.calls) EXPECT_EQ(next.calls.at(step), calls) << step;
        EXPECT_EQ(next.answers, usual_.answers);
        EXPECT_TRUE(HoldsNoMoreThan(held_)) << Holdings::Now() << " for " << held_;
    }

    static void Arm(FakeRuntime& runtime, Fault fault, const std::string& function, int place) {
        switch (fault) {
            case Fault::kFails:
                return runtime.answer_call(function, place, static_cast<XrResult>(kCode));
            case Fault::kThrows:
                return runtime.throw_from_call(function, place);
            case Fault::kIsMissing:
                return runtime.lack(function);
        }
    }

    void LiveWith(Fault fault, const Call& call, std::int32_t told) {
        const auto& [step, function, place] = call;
        {
            Application app;
            LiveUpTo(app, step.name);
            app.runtime.take_calls();
            app.runtime.take_lookups();
            Arm(app.runtime, fault, function, place);
            const std::int32_t result = step.run(app);
            EXPECT_EQ(result, told);
            const std::size_t reached =
                function == kLookUp ? app.runtime.take_lookups().size() : app.runtime.calls(function).size();
            if (fault != Fault::kIsMissing) {
                EXPECT_GE(reached, static_cast<std::size_t>(place)) << "not reached";
            }
            if (fault == Fault::kIsMissing) app.runtime.offer(function);
            LiveOn(app, step, step.is_tool || result != XR_SUCCESS);
            // What the layer made is gone, where the application was not told of a failure and the runtime let it.
            if (told == XR_SUCCESS && !function.starts_with("xrDestroy")) {
                EXPECT_THAT(app.runtime.live_handles(), IsEmpty());
            }
        }
        ExpectUsualLife();
    }

    void LiveWithEach(Fault fault, std::optional<std::int32_t> (*told)(const Told&)) {
        for (const Call& call : AllCalls()) {
            const auto outcome = told(ToldOf(call.step, call.function, call.place));
            // What is missing is for a whole step.
            if (!outcome || (fault == Fault::kIsMissing && call.place > 1)) continue;
            SCOPED_TRACE(TextOf(call));
            LiveWith(fault, call, *outcome);
            if (HasFatalFailure()) return;
        }
    }

    ScratchDirectory state_home_;
    ScopedVariable variable_{"XDG_STATE_HOME", state_home_.path()};
    const Recording usual_ = RecordLife();
    const Holdings held_ = Holdings::Now();
};

TEST_F(Faults, EveryFunctionOfTheLayerIsCalledInALife) {
    std::set<std::string> functions;
    for (const Call& call : AllCalls()) functions.insert(call.function);
#define VELMOOR_NEXT_CALLED(Name) EXPECT_TRUE(functions.contains("xr" #Name)) << #Name;
#define VELMOOR_NEXT_TABLED(Name)
#include "layer/dispatch/dispatch_functions.inc"
#undef VELMOOR_NEXT_CALLED
#undef VELMOOR_NEXT_TABLED
}

TEST_F(Faults, FunctionThatFailsHarmsNothingElse) {
    LiveWithEach(Fault::kFails, [](const Told& told) { return std::optional(told.failing); });
}

TEST_F(Faults, FunctionThatThrowsHarmsNothingElse) {
    LiveWithEach(Fault::kThrows, [](const Told& told) { return std::optional(told.throwing); });
}

TEST_F(Faults, FunctionThatIsMissingHarmsNothingElse) {
    LiveWithEach(Fault::kIsMissing, [](const Told& told) { return told.missing; });
}

// A session that the application left behind is not taken for one of the next instance's.
TEST_F(Faults, DestructionOfAnInstanceThatThrewIsMadeGoodByTheNext) {
    {
        Application app;
        LiveUpTo(app, "end session");
        app.runtime.throw_from_call("xrDestroyInstance", 1);
        EXPECT_EQ(OrvanicLayerXrDestroyInstance(app.instance), XR_ERROR_HANDLE_INVALID);
        EXPECT_EQ(OrvanicLayerXrDestroyInstance(app.instance), XR_SUCCESS);
    }
    ExpectUsualLife();
}

// While one call is held, tools answer, and the frames go on if it is a tool's.
TEST_F(Faults, FunctionThatBlocksHoldsNobodyElse) {
    for (const Call& call : AllCalls()) {
        SCOPED_TRACE(TextOf(call));
        const Step& step = call.step;
        Application app;
        LiveUpTo(app, step.name);
        Gate gate = app.runtime.block_call(call.function, call.place);
        std::future<std::int32_t> held = std::async(std::launch::async, [&] { return step.run(app); });
        ASSERT_TRUE(gate.wait_for_caller());
        if (step.name != "create instance" && step.name != "destroy instance") {
            EXPECT_TRUE(InProcessToolRegistry::instance().invoke("math_calc", {{"expression", "6*7"}}).success);
            EXPECT_TRUE(InProcessToolRegistry::instance().invoke("openxr_get_session_info", {}).success);
        }
        // On purpose the lock of the table is held while a function is looked up by name.
        if (step.is_tool && step.name != kStepWithFrames && call.function != kLookUp) {
            EXPECT_EQ(app.Frame(), XR_SUCCESS);
            EXPECT_EQ(app.Poll({}), XR_SUCCESS);
        }
        gate.open();
        EXPECT_EQ(held.get(), XR_SUCCESS);
        LiveOn(app, step, false);
    }
    ExpectUsualLife();
}

}  // namespace
}  // namespace orvanic_xr
