#include "layer/hooks.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "diagnostics/verbose.h"
#include "layer/action_hooks.h"
#include "layer/binding_hooks.h"
#include "layer/frame_hooks.h"
#include "layer/instance_hooks.h"
#include "layer/session_hooks.h"
#include "layer/space_hooks.h"
#include "tests/fakes/listing_telemetry.h"
#include "tests/layer/hook_fixture.h"

namespace orvanic_xr {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

constexpr XrResult kFailure = XR_ERROR_RUNTIME_FAILURE;
constexpr XrInteractionProfileSuggestedBinding kNoBindings{};
constexpr XrSessionActionSetsAttachInfo kNoSets{};
constexpr XrActionsSyncInfo kNoActiveSets{};

// What a hook makes of a next layer that is not there or throws.
struct HookRow {
    std::string function;
    XrResult (*call)();
    XrResult failure = kFailure;
    bool tells_telemetry = true;
};

const HookRow kRows[] = {
    // It has closed telemetry by then.
    {"DestroyInstance", [] { return OrvanicLayerXrDestroyInstance({}); }, XR_ERROR_HANDLE_INVALID, false},
    {"CreateSession", [] { return OrvanicLayerXrCreateSession({}, nullptr, nullptr); }},
    {"DestroySession", [] { return OrvanicLayerXrDestroySession({}); }},
    {"BeginSession", [] { return OrvanicLayerXrBeginSession({}, nullptr); }},
    {"EndSession", [] { return OrvanicLayerXrEndSession({}); }},
    {"PollEvent", [] { return OrvanicLayerXrPollEvent({}, nullptr); }},
    {"WaitFrame", [] { return OrvanicLayerXrWaitFrame({}, nullptr, nullptr); }},
    {"BeginFrame", [] { return OrvanicLayerXrBeginFrame({}, nullptr); }},
    {"EndFrame", [] { return OrvanicLayerXrEndFrame({}, nullptr); }},
    {"SuggestInteractionProfileBindings",
     [] { return OrvanicLayerXrSuggestInteractionProfileBindings({}, &kNoBindings); }},
    {"AttachSessionActionSets", [] { return OrvanicLayerXrAttachSessionActionSets({}, &kNoSets); }},
    {"SyncActions", [] { return OrvanicLayerXrSyncActions({}, &kNoActiveSets); }},
    {"CreateActionSpace", [] { return OrvanicLayerXrCreateActionSpace({}, nullptr, nullptr); }, kFailure, false},
    {"LocateSpace", [] { return OrvanicLayerXrLocateSpace({}, {}, 0, nullptr); }, kFailure, false},
    {"GetActionStatePose", [] { return OrvanicLayerXrGetActionStatePose({}, nullptr, nullptr); }, kFailure, false},
    {"DestroySpace", [] { return OrvanicLayerXrDestroySpace({}); }, kFailure, false},
    {"CreateAction", [] { return OrvanicLayerXrCreateAction({}, nullptr, nullptr); }, kFailure, false},
    {"DestroyActionSet", [] { return OrvanicLayerXrDestroyActionSet({}); }, kFailure, false},
    {"DestroyAction", [] { return OrvanicLayerXrDestroyAction({}); }, kFailure, false},
};

class Hooks : public HookFixture {};

TEST_F(Hooks, WithoutATableEveryOneFails) {
    FakeRuntime::uninstall();
    for (const HookRow& row : kRows) EXPECT_EQ(row.call(), row.failure) << row.function;
    log_.take();
    EXPECT_EQ(OrvanicLayerXrGetActionStateFloat({}, nullptr, nullptr), XR_ERROR_RUNTIME_FAILURE);
    EXPECT_EQ(OrvanicLayerXrGetActionStateBoolean({}, nullptr, nullptr), XR_ERROR_RUNTIME_FAILURE);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Hooks, FunctionThatIsMissingOrThrowsIsNamed) {
    std::vector<std::string> events;
    Telemetry::instance().set_implementation(std::make_unique<ListingTelemetry>(events));
    for (const HookRow& row : kRows) {
        SCOPED_TRACE(row.function);
        runtime_.lack("xr" + row.function);
        EXPECT_EQ(row.call(), row.failure);
        EXPECT_THAT(log_.messages("ERROR"), Contains("Next xr" + row.function + " is null"));
        runtime_.offer("xr" + row.function);

        Telemetry::instance().initialize("application", "1");
        events.clear();
        log_.take();
        runtime_.throw_from("xr" + row.function);
        EXPECT_EQ(row.call(), row.failure);
        EXPECT_THAT(log_.messages("ERROR"), Contains("Exception in OrvanicLayerXr" + row.function));
        std::erase_if(events, [](const std::string& event) { return event.find("error=") == event.npos; });
        EXPECT_THAT(events, SizeIs(row.tells_telemetry ? 1 : 0));
        EXPECT_THAT(events, Each(EndsWith("#10 error=layer/hook_exception")));
        runtime_.behave("xr" + row.function);
    }
    Telemetry::instance().shutdown();
    Telemetry::instance().set_implementation(std::make_unique<NoopTelemetryImpl>());
}

XrResult Lookup(const char* name, PFN_xrVoidFunction& function) {
    function = nullptr;
    return OrvanicLayerXrGetInstanceProcAddr(XR_NULL_HANDLE, name, &function);
}

TEST_F(Hooks, LookupFindsEveryHookByItsExactName) {
    ScopedVerboseAnswer verbose(true);
    std::vector<std::string> names = {"GetInstanceProcAddr", "GetActionStateFloat", "GetActionStateBoolean",
                                      "OrvanicRegisterExternalToolKESTX1"};
    for (const HookRow& row : kRows) names.push_back(row.function);
    EXPECT_EQ(names.size(), 23u);
    PFN_xrVoidFunction function = nullptr;
    for (const std::string& name : names) {
        EXPECT_EQ(Lookup(("xr" + name).c_str(), function), XR_SUCCESS) << name;
        EXPECT_NE(function, nullptr) << name;
        EXPECT_EQ(FindHook("XR" + name), nullptr);
        EXPECT_EQ(FindHook("xr" + name + "EXT"), nullptr);
    }
    EXPECT_THAT(runtime_.take_lookups(), IsEmpty());
    EXPECT_EQ(FindHook("xrWaitFrame"), reinterpret_cast<PFN_xrVoidFunction>(OrvanicLayerXrWaitFrame));
    EXPECT_EQ(FindHook("xrLocateSpace"), reinterpret_cast<PFN_xrVoidFunction>(OrvanicLayerXrLocateSpace));
}

TEST_F(Hooks, OtherNamesAreTheNextLayersToAnswer) {
    ScopedVerboseAnswer verbose(false);
    PFN_xrVoidFunction function = nullptr;
    EXPECT_EQ(Lookup("xrGetSystemProperties", function), XR_SUCCESS);
    EXPECT_EQ(function, reinterpret_cast<PFN_xrVoidFunction>(Next(&NextDispatchTable::GetSystemProperties)));
    EXPECT_EQ(Lookup("xrGetActionStateFloat", function), XR_SUCCESS);
    EXPECT_EQ(function, reinterpret_cast<PFN_xrVoidFunction>(Next(&NextDispatchTable::GetActionStateFloat)));
    EXPECT_EQ(Lookup("xrNoSuchFunction", function), XR_ERROR_FUNCTION_UNSUPPORTED);
    EXPECT_THAT(runtime_.take_lookups(),
                ElementsAre("xrGetSystemProperties", "xrGetActionStateFloat", "xrNoSuchFunction"));
    EXPECT_EQ(Lookup(nullptr, function), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(OrvanicLayerXrGetInstanceProcAddr(XR_NULL_HANDLE, "xrWaitFrame", nullptr), XR_ERROR_VALIDATION_FAILURE);
    FakeRuntime::uninstall();
    EXPECT_EQ(Lookup("xrGetSystem", function), XR_ERROR_HANDLE_INVALID);
    EXPECT_EQ(function, nullptr);
    EXPECT_EQ(Lookup("xrCreateSession", function), XR_SUCCESS);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST(VerboseSwitch, IsReadByTheFirstLookupThatGetsPastThePoseState) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process in which nobody read it
    EXPECT_EXIT(
        {
            setenv("ORVANICXR_VERBOSE", "1", 1);
            FindHook("xrGetActionStatePose");
            const bool was_unread = Logger::instance().level() == kLogInfo;
            FindHook("xrDestroySpace");
            std::_Exit(was_unread && Logger::instance().level() == kLogDebug ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orvanic_xr
