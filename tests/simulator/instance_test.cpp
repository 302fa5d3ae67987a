// Negotiation, instance, handles and paths.
#include <gmock/gmock.h>

#include "tests/simulator/simulator_fixture.h"

namespace simulator_test {
namespace {

class SimulatorInstance : public SimulatorTest {};

XrResult Lookup(XrInstance instance, const char* name) {
    PFN_xrVoidFunction function = nullptr;
    return RuntimeLookup()(instance, name, &function);
}

TEST_F(SimulatorInstance, LookupGivesWhatTheInstanceEnabled) {
    EXPECT_EQ(Lookup(XR_NULL_HANDLE, "xrCreateInstance"), XR_SUCCESS);
    EXPECT_EQ(Lookup(XR_NULL_HANDLE, "xrEnumerateInstanceExtensionProperties"), XR_SUCCESS);
    EXPECT_EQ(Lookup(XR_NULL_HANDLE, "xrCreateSession"), XR_ERROR_HANDLE_INVALID);
    EXPECT_EQ(Lookup(instance_, "xrCreateSession"), XR_SUCCESS);
    EXPECT_EQ(Lookup(instance_, "xrNoSuchThing"), XR_ERROR_FUNCTION_UNSUPPORTED);
    EXPECT_EQ(Lookup(HandleOf<XrInstance>(1), "xrCreateSession"), XR_ERROR_HANDLE_INVALID);
}

TEST_F(SimulatorInstance, HandlesOfDestroyedObjectsAndOtherKindsAreRefused) {
    const XrSession session = MakeSession();
    const XrActionSet set = MakeActionSet("play");
    const XrAction action = MakeAction(set, "jump", XR_ACTION_TYPE_BOOLEAN_INPUT);
    const XrSpace space = MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE);
    EXPECT_EQ(DestroySpace(reinterpret_cast<XrSpace>(session)), XR_ERROR_HANDLE_INVALID);
    EXPECT_EQ(DestroySpace(XR_NULL_HANDLE), XR_ERROR_HANDLE_INVALID);
    // The place and generation of the space, with the kind of a session in bits 44 to 47.
    const std::uint64_t forged = (reinterpret_cast<std::uint64_t>(space) & 0x0FFFFFFFFFFF) | std::uint64_t{2} << 44;
    EXPECT_EQ(DestroySession(HandleOf<XrSession>(forged)), XR_ERROR_HANDLE_INVALID);

    EXPECT_EQ(DestroySession(session), XR_SUCCESS);
    EXPECT_EQ(DestroySession(session), XR_ERROR_HANDLE_INVALID);
    EXPECT_EQ(DestroySpace(space), XR_ERROR_HANDLE_INVALID) << "spaces go with their session";

    EXPECT_EQ(DestroyActionSet(set), XR_SUCCESS);
    EXPECT_EQ(DestroyAction(action), XR_ERROR_HANDLE_INVALID) << "actions go with their set";

    const XrInstance old = std::exchange(instance_, XR_NULL_HANDLE);
    EXPECT_EQ(DestroyInstance(old), XR_SUCCESS);
    EXPECT_EQ(DestroyInstance(old), XR_ERROR_HANDLE_INVALID);
}

TEST_F(SimulatorInstance, HandleOfAReusedPlaceIsRefused) {
    const XrSession session = MakeSession();
    const XrSpace stage = MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE);
    const XrSpace first = MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE);
    DestroySpace(first);
    // The low 16 bits are the place; free ones are used in turn.
    const auto place = [](XrSpace space) { return reinterpret_cast<std::uint64_t>(space) & 0xFFFF; };
    XrSpace second = MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE);
    for (int i = 0; i < 10000 && place(second) != place(first); ++i) {
        DestroySpace(second);
        second = MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE);
    }
    ASSERT_EQ(place(second), place(first));
    auto location = Typed<XrSpaceLocation>(XR_TYPE_SPACE_LOCATION);
    EXPECT_EQ(LocateSpace(second, stage, 1, &location), XR_SUCCESS);
    EXPECT_EQ(LocateSpace(first, stage, 1, &location), XR_ERROR_HANDLE_INVALID);
}

TEST_F(SimulatorInstance, DestroyedHandleEndsAStrictProcess) {
    setenv("VELMOOR_SIM_STRICT", "1", 1);
    DestroyInstance(instance_);
    ASSERT_EQ(TryCreateInstance(Extensions(), instance_), XR_SUCCESS);
    unsetenv("VELMOOR_SIM_STRICT");
    const XrSession session = MakeFocusedSession();
    const XrSpace child = MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE);
    const XrActionSet set = MakeActionSet("play");
    const XrAction action = MakeAction(set, "jump", XR_ACTION_TYPE_BOOLEAN_INPUT);
    EXPECT_EQ(DestroySpace(XR_NULL_HANDLE), XR_ERROR_HANDLE_INVALID) << "never was one";
    DestroySession(session);
    const XrSession next = MakeFocusedSession();
    DestroyActionSet(set);
    const auto naming = [](const std::string& function) {
        return testing::MatchesRegex("VELMOOR_SIM_STRICT: xr" + function +
                                     " was called with the destroyed handle 0x[0-9a-f]+\n");
    };
    EXPECT_DEATH(DestroySession(session), naming("DestroySession"));
    EXPECT_DEATH(DestroySpace(child), naming("DestroySpace"));
    EXPECT_DEATH(Suggest(kTouchProfile, {{action, "/user/hand/left/input/x/click"}}),
                 naming("SuggestInteractionProfileBindings"));
    EXPECT_DEATH(Sync(next, {set}), naming("SyncActions"));
    EXPECT_DEATH(RunFrame(session), naming("WaitFrame"));
}

TEST_F(SimulatorInstance, PathsAreWellFormedOrRefused) {
    XrPath path = XR_NULL_PATH;
    const std::string longest = "/" + std::string(254, 'a');
    for (const std::string& text : {std::string("/user/hand/left"), std::string("/a.b-c_9"), longest}) {
        EXPECT_EQ(StringToPath(instance_, text.c_str(), &path), XR_SUCCESS) << text;
    }
    for (const std::string& text : {std::string(), std::string("/"), std::string("user/hand"), std::string("/user/"),
                                    std::string("/user//hand"), std::string("/User"), longest + "a"}) {
        EXPECT_EQ(StringToPath(instance_, text.c_str(), &path), XR_ERROR_PATH_FORMAT_INVALID) << text;
    }
}

TEST_F(SimulatorInstance, SystemHasToBeAskedForFirst) {
    constexpr XrSystemId kSystem = 0x51;
    auto info = Typed<XrSessionCreateInfo>(XR_TYPE_SESSION_CREATE_INFO);
    info.systemId = kSystem;
    auto properties = Typed<XrSystemProperties>(XR_TYPE_SYSTEM_PROPERTIES);
    XrSession session = XR_NULL_HANDLE;
    std::uint32_t count = 0;
    const auto answers = [&] {
        return std::vector{EnumerateViewConfigurations(instance_, kSystem, 0, &count, nullptr),
                           GetSystemProperties(instance_, kSystem, &properties),
                           CreateSession(instance_, &info, &session)};
    };
    EXPECT_THAT(answers(), testing::Each(XR_ERROR_SYSTEM_INVALID));
    XrSystemGetInfo get = {XR_TYPE_SYSTEM_GET_INFO, nullptr, XR_FORM_FACTOR_HANDHELD_DISPLAY};
    XrSystemId system = XR_NULL_SYSTEM_ID;
    EXPECT_EQ(GetSystem(instance_, &get, &system), XR_ERROR_FORM_FACTOR_UNSUPPORTED);
    EXPECT_THAT(answers(), testing::Each(XR_ERROR_SYSTEM_INVALID));
    get.formFactor = XR_FORM_FACTOR_HEAD_MOUNTED_DISPLAY;
    EXPECT_EQ(GetSystem(instance_, &get, &system), XR_SUCCESS);
    EXPECT_THAT(answers(), testing::Each(XR_SUCCESS));
}

class SimulatorWithoutExtensions : public SimulatorTest {
    std::vector<const char*> Extensions() const override { return {"XR_MND_headless"}; }
};

TEST_F(SimulatorWithoutExtensions, WhatTheyBringIsMissing) {
    EXPECT_EQ(SetInputDeviceActiveEXT, nullptr);
    const XrAction action = MakeAction(MakeActionSet("play"), "act", XR_ACTION_TYPE_FLOAT_INPUT);
    EXPECT_EQ(Suggest(kProntoProfile, {{action, "/user/hand/left/input/trigger/value"}}), XR_ERROR_PATH_UNSUPPORTED);
    const XrReferenceSpaceCreateInfo info = {XR_TYPE_REFERENCE_SPACE_CREATE_INFO, nullptr,
                                             XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR, kIdentity};
    XrSpace space = XR_NULL_HANDLE;
    EXPECT_EQ(CreateReferenceSpace(MakeSession(), &info, &space), XR_ERROR_REFERENCE_SPACE_UNSUPPORTED);
    XrInstance instance = XR_NULL_HANDLE;
    EXPECT_EQ(TryCreateInstance({"XR_KESTX1_orvanic_external_tool"}, instance), XR_ERROR_EXTENSION_NOT_PRESENT);
    EXPECT_EQ(TryCreateInstance({"XR_KS_scene"}, instance), XR_ERROR_EXTENSION_DEPENDENCY_NOT_ENABLED);
}

}  // namespace
}  // namespace simulator_test
