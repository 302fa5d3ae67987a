// The built runtime library in this process, reached through its negotiate function as the loader reaches it,
// and the short words that its tests are written in.
#pragma once

#include <gtest/gtest.h>
#include <openxr/openxr.h>
#include <openxr/openxr_reflection.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace simulator_test {

// Every function that a test calls, by its name without "xr".
#define VELMOOR_TESTED_FUNCTIONS(X)     \
    XR_LIST_FUNCTIONS_XR_VERSION_1_0(X) \
    XR_LIST_FUNCTIONS_XR_VERSION_1_1(X) \
    XR_LIST_FUNCTIONS_XR_EXT_conformance_automation(X)

inline constexpr XrPosef kIdentity = {{0, 0, 0, 1}, {0, 0, 0}};
inline constexpr char kTouchProfile[] = "/interaction_profiles/oculus/touch_controller";
inline constexpr char kProntoProfile[] = "/interaction_profiles/kest/pronto_controller_plus";

// What the library's negotiate function hands out.
PFN_xrGetInstanceProcAddr RuntimeLookup();
// By which the tests reach it: through the automation layer where they are built for that.
PFN_xrGetInstanceProcAddr Lookup();

// A zeroed record that says what it is.
template <class Record>
Record Typed(XrStructureType type) {
    Record record = {};
    record.type = type;
    return record;
}

class SimulatorTest : public ::testing::Test {
 protected:
    // Frames are short, so that a test runs through many of them.
    static constexpr double kFramesPerSecond = 500.0;

    void SetUp() override;
    void TearDown() override;

    // What a suite enables; all that the runtime has, unless it says otherwise.
    virtual std::vector<const char*> Extensions() const;
    // What it asks for.
    virtual XrVersion Version() const { return XR_MAKE_VERSION(1, 0, 0); }

    XrResult TryCreateInstance(const std::vector<const char*>& extensions, XrInstance& instance);
    XrSession MakeSession();
    // A session in the state FOCUSED, its events taken.
    XrSession MakeFocusedSession();
    void Begin(XrSession session);
    XrFrameState RunFrame(XrSession session);

    std::optional<XrEventDataBuffer> NextEvent();
    // The states that wait in the event queue, oldest first; other events are dropped.
    std::vector<XrSessionState> StatesTold();

    XrPath Path(const std::string& text);
    std::string Text(XrPath path);

    XrActionSet MakeActionSet(const std::string& name, std::uint32_t priority = 0);
    XrAction MakeAction(XrActionSet set, const std::string& name, XrActionType type,
                        std::initializer_list<const char*> subactions = {});
    // One of the instance's functions that is not below; null where it is not offered.
    template <class Function>
    Function FunctionOf(const char* name) {
        PFN_xrVoidFunction function = nullptr;
        Lookup()(instance_, name, &function);
        return reinterpret_cast<Function>(function);
    }

    XrSpace MakeActionSpace(XrSession session, XrAction action);
    XrResult Suggest(const std::string& profile, std::initializer_list<std::pair<XrAction, const char*>> bindings);
    XrResult Attach(XrSession session, std::vector<XrActionSet> sets);
    XrResult Sync(XrSession session, std::vector<XrActionSet> sets);
    // What one of the functions for the state of an action answers.
    template <class State>
    State StateOf(XrResult(XRAPI_PTR* get_state)(XrSession, const XrActionStateGetInfo*, State*), XrStructureType type,
                  XrSession session, XrAction action, const char* subaction = nullptr) {
        const XrActionStateGetInfo info = {XR_TYPE_ACTION_STATE_GET_INFO, nullptr, action,
                                           subaction ? Path(subaction) : XR_NULL_PATH};
        auto state = Typed<State>(type);
        EXPECT_EQ(get_state(session, &info, &state), XR_SUCCESS);
        return state;
    }

    XrSpace MakeSpace(XrSession session, XrReferenceSpaceType type, const XrPosef& pose = kIdentity);
    XrSpaceLocation Locate(XrSpace space, XrSpace base, XrTime time = 1);

#define VELMOOR_DECLARE(name, extension) PFN_xr##name name = nullptr;
    VELMOOR_TESTED_FUNCTIONS(VELMOOR_DECLARE)
#undef VELMOOR_DECLARE

    XrInstance instance_ = XR_NULL_HANDLE;
};

template <class Handle>
Handle HandleOf(std::uint64_t number) {
    return reinterpret_cast<Handle>(number);
}

}  // namespace simulator_test
