// Every function of the runtime fails, throws, is missing or blocks, at every place of an application's life where
// the layer calls it: the call that is at work answers as the table says, and life goes on.
#include <gmock/gmock.h>

#include <algorithm>
#include <future>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
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

constexpr int kLast = 1000;

struct Row {
    std::string_view step;
    std::string_view function;
    Told told;
    int first = 1;  // of the calls in that step
    int last = kLast;
};

constexpr std::string_view kLookUp = "xrGetInstanceProcAddr";

constexpr Row kRows[] = {
    {"create instance", kLookUp, kAddedLookUp},
    {"create instance", "xrEnumerateInstanceExtensionProperties", kAdded},
    {"create instance", "xrCreateApiLayerInstance", kForwardedToCreate},
    {"look up", kLookUp, kForwardedLookUp},
    {"create session", "xrCreateSession", kForwarded},
    {"create session", "xrGetSystemProperties", kAdded},
    {"create session", "xrCreateReferenceSpace", kAdded},
    {"create session", "xrCreateActionSet", kAdded},
    {"create session", "xrCreateAction", kAdded},
    {"create session", "xrCreateActionSpace", kAdded},
    {"create session", "xrQuerySpacesKS", kAdded},
    {"suggest bindings", "xrPathToString", kUnnoticed},
    {"suggest bindings", "xrStringToPath", kUnnoticed},
    {"suggest bindings", "xrSuggestInteractionProfileBindings", kForwarded},
    {"attach", "xrStringToPath", kUnnoticed},
    {"attach", "xrPathToString", kUnnoticed},
    {"attach", "xrSuggestInteractionProfileBindings", kUnnoticed},
    {"attach", "xrAttachSessionActionSets", kForwarded},
    {"create hand space", "xrCreateActionSpace", kForwarded},
    {"create hand space", "xrPathToString", kAdded},
    {"begin session", "xrBeginSession", kForwarded},
    {"begin session", kLookUp, kUnnoticedLookUp},
    {"begin session", "xrStartSimulatorCompositorOutputCaptureKESTX1", kUnnoticed},
    {"poll state", "xrPollEvent", kForwarded},
    {"poll containers", "xrPollEvent", kForwarded},
    {"poll containers", "xrRetrieveSpaceQueryResultsKS", kAdded},
    {"poll containers", "xrGetSpaceComponentStatusKS", kAdded},
    {"poll containers", "xrGetSpaceContainerKS", kAdded},
    {"poll containers", "xrQuerySpacesKS", kAdded},
    {"poll entities", "xrPollEvent", kForwarded},
    {"poll entities", "xrRetrieveSpaceQueryResultsKS", kAdded},
    {"poll entities", "xrGetSpaceSemanticLabelsKS", kAdded},
    {"poll entities", "xrGetSpaceBoundingBox2DKS", kAdded},
    {"poll entities", "xrGetSpaceBoundingBox3DKS", kAdded},
    {"poll entities", "xrEnumerateSpaceSupportedComponentsKS", kAdded},
    {"poll entities", "xrSetSpaceComponentStatusKS", kAdded},
    {"poll components", "xrPollEvent", kForwarded},
    {"frames", "xrWaitFrame", kForwarded},
    {"frames", "xrBeginFrame", kForwarded},
    {"frames", "xrEndFrame", kForwarded},
    {"sync", "xrSyncActions", kForwarded},
    {"locate hand", "xrLocateSpace", kForwarded},
    {"get pose", "xrGetActionStatePose", kForwarded},
    {"get float", "xrGetActionStateFloat", kForwarded},
    {"get boolean", "xrGetActionStateBoolean", kForwarded},
    {"head pose", "xrLocateSpace", kOfTool},
    {"controller pose", "xrGetActionStatePose", kOfTool},
    {"controller pose", "xrLocateSpace", kOfTool},
    {"convert pose", "xrLocateSpace", kOfTool},
    {"interaction profile", "xrStringToPath", kOfTool},
    {"interaction profile", "xrGetCurrentInteractionProfile", kOfTool},
    {"interaction profile", "xrPathToString", kOfTool},
    {"capture", kLookUp, kUnnoticedLookUp},
    {"capture", "xrCaptureSimulatorCompositorOutputKESTX1", kUnnoticed},
    {"list entities", "xrLocateSpace", kOfTool},
    {"take over", kLookUp, kUnnoticedLookUp},
    {"take over", "xrLocateSpace", kOfTool},
    {"take over", "xrStringToPath", kOfTool},
    {"take over", "xrSetInputDeviceActiveEXT", kOfTool},
    {"take over", "xrSetInputDeviceLocationEXT", kOfTool},
    {"mirrored pose", "xrLocateSpace", kOfTool},
    {"locate simulated hand", "xrLocateSpace", kInstead},
    {"move controller", kLookUp, kUnnoticedLookUp},
    {"move controller", "xrLocateSpace", kOfTool},
    {"move controller", "xrStringToPath", kOfTool},
    {"move controller", "xrSetInputDeviceLocationEXT", kOfTool},
    // The tool finds out where all is, and the application's xrWaitFrame moves it.
    {"move head over time", "xrLocateSpace", kOfTool, 1, 3},
    {"move head over time", "xrLocateSpace", kAdded, 4},
    {"move head over time", kLookUp, kUnnoticedLookUp},
    {"move head over time", "xrStringToPath", kAdded},
    {"move head over time", "xrSetInputDeviceLocationEXT", kAdded},
    {"move head over time", "xrWaitFrame", kForwarded, 1, 1},
    {"move head over time", "xrBeginFrame", kForwarded, 1, 1},
    {"move head over time", "xrEndFrame", kForwarded, 1, 1},
    // The tool presses, and its thread lets go.
    {"press and release", kLookUp, kUnnoticedLookUp},
    {"press and release", "xrStringToPath", kOfTool, 1, 2},
    {"press and release", "xrStringToPath", kUnnoticed, 3},
    {"press and release", "xrSetInputDeviceStateBoolEXT", kOfTool, 1, 1},
    {"press and release", "xrSetInputDeviceStateBoolEXT", kUnnoticed, 2},
    {"pull trigger", kLookUp, kUnnoticedLookUp},
    {"pull trigger", "xrStringToPath", kOfTool},
    {"pull trigger", "xrSetInputDeviceStateFloatEXT", kOfTool},
    {"exit", "xrRequestExitSession", kOfTool},
    {"last frame", "xrWaitFrame", kForwarded},
    {"last frame", "xrBeginFrame", kForwarded},
    {"last frame", "xrEndFrame", kForwarded},
    {"destroy hand space", "xrDestroySpace", kForwarded},
    {"destroy action", "xrDestroyAction", kForwarded},
    {"end session", kLookUp, kUnnoticedLookUp},
    {"end session", "xrStopSimulatorCompositorOutputCaptureKESTX1", kUnnoticed},
    {"end session", "xrEndSession", kForwarded},
    {"destroy session", "xrDestroySpace", kUnnoticed},
    {"destroy session", "xrDestroyActionSet", kUnnoticed},
    {"destroy session", "xrDestroySession", kForwarded},
    {"destroy instance", "xrDestroyInstance", kForwardedToDestroy},
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

    int LastPlace(const Row& row) const {
        return std::min(row.last, usual_.counts.at(row.step).at(std::string(row.function)));
    }
    // Filling the table takes a look-up for each of its functions, which are all alike.
    static bool IsWorthATest(const Row& row, int place, int last) {
        return row.step != "create instance" || row.function != kLookUp || place <= 2 || place == last;
    }

    // Up to the step of that name, in which nothing goes wrong.
    static const Step& LiveUpTo(Application& app, std::string_view name) {
        for (const Step& step : WholeLife()) {
            if (step.name == name) return step;
            EXPECT_EQ(step.run(app), XR_SUCCESS) << step.name;
        }
        throw std::logic_error("no step of that name");
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

    void LiveWith(Fault fault, const Row& row, int place, std::int32_t told) {
        const std::string function(row.function);
        {
            Application app;
            const Step& step = LiveUpTo(app, row.step);
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

    void LiveWithEach(Fault fault, std::int32_t (*told)(const Told&)) {
        for (const Row& row : kRows) {
            const int last = LastPlace(row);
            for (int place = row.first; place <= last; ++place) {
                SCOPED_TRACE(std::string(row.function) + " in " + std::string(row.step) + ", call " +
                             std::to_string(place));
                if (IsWorthATest(row, place, last)) LiveWith(fault, row, place, told(row.told));
                if (HasFatalFailure()) return;
            }
        }
    }

    ScratchDirectory state_home_;
    ScopedVariable variable_{"XDG_STATE_HOME", state_home_.path()};
    const Recording usual_ = RecordLife();
    const Holdings held_ = Holdings::Now();
};

// No call of the layer is forgotten by the table, and the table speaks of none that is not made.
TEST_F(Faults, TableHoldsEveryCallOfALife) {
    std::set<std::string> told;
    std::set<std::string> functions;
    for (const Row& row : kRows) {
        told.insert(std::string(row.function) + " in " + std::string(row.step));
        functions.emplace(row.function);
    }
    std::set<std::string> made;
    for (const auto& [step, counts] : usual_.counts) {
        for (const auto& [function, count] : counts) made.insert(function + " in " + std::string(step));
    }
    std::vector<std::string> different;
    std::ranges::set_symmetric_difference(told, made, std::back_inserter(different));
    EXPECT_THAT(different, IsEmpty());
#define VELMOOR_NEXT_CALLED(Name) EXPECT_TRUE(functions.contains("xr" #Name)) << #Name;
#define VELMOOR_NEXT_TABLED(Name)
#include "layer/dispatch/dispatch_functions.inc"
#undef VELMOOR_NEXT_CALLED
#undef VELMOOR_NEXT_TABLED
}

TEST_F(Faults, FunctionThatFailsHarmsNothingElse) {
    LiveWithEach(Fault::kFails, [](const Told& told) { return told.failing; });
}

TEST_F(Faults, FunctionThatThrowsHarmsNothingElse) {
    LiveWithEach(Fault::kThrows, [](const Told& told) { return told.throwing; });
}

// For a whole step, so there are no places.
TEST_F(Faults, FunctionThatIsMissingHarmsNothingElse) {
    for (const Row& row : kRows) {
        if (row.first != 1 || !row.told.missing) continue;
        SCOPED_TRACE(std::string(row.function) + " in " + std::string(row.step));
        LiveWith(Fault::kIsMissing, row, 1, *row.told.missing);
    }
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
    for (const Row& row : kRows) {
        const bool has_tools = row.step != "create instance" && row.step != "destroy instance";
        const int last = LastPlace(row);
        for (int place = row.first; place <= last; ++place) {
            if (!IsWorthATest(row, place, last)) continue;
            SCOPED_TRACE(std::string(row.function) + " in " + std::string(row.step) + ", call " +
                         std::to_string(place));
            Application app;
            const Step& step = LiveUpTo(app, row.step);
            Gate gate = app.runtime.block_call(std::string(row.function), place);
            std::future<std::int32_t> held = std::async(std::launch::async, [&] { return step.run(app); });
            ASSERT_TRUE(gate.wait_for_caller());
            if (has_tools) {
                EXPECT_TRUE(InProcessToolRegistry::instance().invoke("math_calc", {{"expression", "6*7"}}).success);
                EXPECT_TRUE(InProcessToolRegistry::instance().invoke("openxr_get_session_info", {}).success);
            }
            // On purpose the lock of the table is held while a function is looked up by name.
            if (step.is_tool && row.step != kStepWithFrames && row.function != kLookUp) {
                EXPECT_EQ(app.Frame(), XR_SUCCESS);
                EXPECT_EQ(app.Poll({}), XR_SUCCESS);
            }
            gate.open();
            EXPECT_EQ(held.get(), XR_SUCCESS);
            LiveOn(app, step, false);
        }
    }
    ExpectUsualLife();
}

}  // namespace
}  // namespace orvanic_xr
