#include "tests/simulator/simulator_fixture.h"

#include <dlfcn.h>
#include <openxr/openxr_loader_negotiation.h>

#include <cstdlib>
#include <cstring>

#ifdef VELMOOR_THROUGH_AUTOMATION_LAYER
#include "tests/automation/layered_lookup.h"
#endif

namespace simulator_test {
namespace {

template <std::size_t kSize>
void Fill(char (&field)[kSize], const std::string& text) {
    std::strncpy(field, text.c_str(), kSize - 1);
}

}  // namespace

PFN_xrGetInstanceProcAddr RuntimeLookup() {
    static void* const library = dlopen(VELMOOR_SIMULATOR_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!library) ADD_FAILURE() << dlerror();
    const auto negotiate =
        reinterpret_cast<PFN_xrNegotiateLoaderRuntimeInterface>(dlsym(library, "xrNegotiateLoaderRuntimeInterface"));
    const XrNegotiateLoaderInfo loader = {
        XR_LOADER_INTERFACE_STRUCT_LOADER_INFO, 1, sizeof(XrNegotiateLoaderInfo), 1, 1, XR_MAKE_VERSION(1, 0, 0),
        XR_MAKE_VERSION(1, 0x3ff, 0xfff)};
    XrNegotiateRuntimeRequest request = {XR_LOADER_INTERFACE_STRUCT_RUNTIME_REQUEST, 1, sizeof(request), 0, 0, nullptr};
    EXPECT_EQ(negotiate(&loader, &request), XR_SUCCESS);
    EXPECT_EQ(request.runtimeInterfaceVersion, 1u);
    return request.getInstanceProcAddr;
}

PFN_xrGetInstanceProcAddr Lookup() {
#ifdef VELMOOR_THROUGH_AUTOMATION_LAYER
    return automation_test::LayeredLookup();
#else
    return RuntimeLookup();
#endif
}

void SimulatorTest::SetUp() {
    setenv("VELMOOR_SIM_HZ", std::to_string(kFramesPerSecond).c_str(), 1);
    ASSERT_EQ(TryCreateInstance(Extensions(), instance_), XR_SUCCESS);
#define VELMOOR_LOAD(name, extension) Lookup()(instance_, "xr" #name, reinterpret_cast<PFN_xrVoidFunction*>(&name));
    VELMOOR_TESTED_FUNCTIONS(VELMOOR_LOAD)
#undef VELMOOR_LOAD
}

void SimulatorTest::TearDown() {
    if (instance_ != XR_NULL_HANDLE) DestroyInstance(instance_);
}

std::vector<const char*> SimulatorTest::Extensions() const {
    return {"XR_MND_headless", "XR_EXT_local_floor", "XR_EXT_conformance_automation", "XR_KEST_pronto_controller_plus"};
}

XrResult SimulatorTest::TryCreateInstance(const std::vector<const char*>& extensions, XrInstance& instance) {
    PFN_xrCreateInstance create = nullptr;
    Lookup()(XR_NULL_HANDLE, "xrCreateInstance", reinterpret_cast<PFN_xrVoidFunction*>(&create));
    auto info = Typed<XrInstanceCreateInfo>(XR_TYPE_INSTANCE_CREATE_INFO);
    Fill(info.applicationInfo.applicationName, "simulator test");
    info.applicationInfo.apiVersion = Version();
    info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
    info.enabledExtensionNames = extensions.data();
    return create(&info, &instance);
}

XrSession SimulatorTest::MakeSession() {
    const XrSystemGetInfo system_info = {XR_TYPE_SYSTEM_GET_INFO, nullptr, XR_FORM_FACTOR_HEAD_MOUNTED_DISPLAY};
    auto info = Typed<XrSessionCreateInfo>(XR_TYPE_SESSION_CREATE_INFO);
    EXPECT_EQ(GetSystem(instance_, &system_info, &info.systemId), XR_SUCCESS);
    XrSession session = XR_NULL_HANDLE;
    EXPECT_EQ(CreateSession(instance_, &info, &session), XR_SUCCESS);
    return session;
}

XrSession SimulatorTest::MakeFocusedSession() {
    const XrSession session = MakeSession();
    Begin(session);
    StatesTold();
    return session;
}

void SimulatorTest::Begin(XrSession session) {
    const XrSessionBeginInfo info = {XR_TYPE_SESSION_BEGIN_INFO, nullptr, XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO};
    EXPECT_EQ(BeginSession(session, &info), XR_SUCCESS);
}

XrFrameState SimulatorTest::RunFrame(XrSession session) {
    auto state = Typed<XrFrameState>(XR_TYPE_FRAME_STATE);
    EXPECT_EQ(WaitFrame(session, nullptr, &state), XR_SUCCESS);
    EXPECT_EQ(BeginFrame(session, nullptr), XR_SUCCESS);
    const XrFrameEndInfo end = {XR_TYPE_FRAME_END_INFO,           nullptr, state.predictedDisplayTime,
                                XR_ENVIRONMENT_BLEND_MODE_OPAQUE, 0,       nullptr};
    EXPECT_EQ(EndFrame(session, &end), XR_SUCCESS);
    return state;
}

std::optional<XrEventDataBuffer> SimulatorTest::NextEvent() {
    auto buffer = Typed<XrEventDataBuffer>(XR_TYPE_EVENT_DATA_BUFFER);
    if (PollEvent(instance_, &buffer) != XR_SUCCESS) return std::nullopt;
    return buffer;
}

std::vector<XrSessionState> SimulatorTest::StatesTold() {
    std::vector<XrSessionState> states;
    while (const auto event = NextEvent()) {
        XrEventDataSessionStateChanged changed;
        std::memcpy(&changed, &*event, sizeof(changed));
        if (changed.type == XR_TYPE_EVENT_DATA_SESSION_STATE_CHANGED) states.push_back(changed.state);
    }
    return states;
}

XrPath SimulatorTest::Path(const std::string& text) {
    XrPath path = XR_NULL_PATH;
    EXPECT_EQ(StringToPath(instance_, text.c_str(), &path), XR_SUCCESS) << text;
    return path;
}

std::string SimulatorTest::Text(XrPath path) {
    char buffer[XR_MAX_PATH_LENGTH];
    std::uint32_t count = 0;
    EXPECT_EQ(PathToString(instance_, path, sizeof(buffer), &count, buffer), XR_SUCCESS);
    return buffer;
}

XrActionSet SimulatorTest::MakeActionSet(const std::string& name, std::uint32_t priority) {
    auto info = Typed<XrActionSetCreateInfo>(XR_TYPE_ACTION_SET_CREATE_INFO);
    Fill(info.actionSetName, name);
    Fill(info.localizedActionSetName, "Set " + name);
    info.priority = priority;
    XrActionSet set = XR_NULL_HANDLE;
    EXPECT_EQ(CreateActionSet(instance_, &info, &set), XR_SUCCESS);
    return set;
}

XrAction SimulatorTest::MakeAction(XrActionSet set, const std::string& name, XrActionType type,
                                   std::initializer_list<const char*> subactions) {
    std::vector<XrPath> paths;
    for (const char* subaction : subactions) paths.push_back(Path(subaction));
    auto info = Typed<XrActionCreateInfo>(XR_TYPE_ACTION_CREATE_INFO);
    Fill(info.actionName, name);
    Fill(info.localizedActionName, "Action " + name);
    info.actionType = type;
    info.countSubactionPaths = static_cast<std::uint32_t>(paths.size());
    info.subactionPaths = paths.data();
    XrAction action = XR_NULL_HANDLE;
    EXPECT_EQ(CreateAction(set, &info, &action), XR_SUCCESS);
    return action;
}

XrSpace SimulatorTest::MakeActionSpace(XrSession session, XrAction action) {
    const XrActionSpaceCreateInfo info = {XR_TYPE_ACTION_SPACE_CREATE_INFO, nullptr, action, XR_NULL_PATH, kIdentity};
    XrSpace space = XR_NULL_HANDLE;
    EXPECT_EQ(CreateActionSpace(session, &info, &space), XR_SUCCESS);
    return space;
}

XrResult SimulatorTest::Suggest(const std::string& profile,
                                std::initializer_list<std::pair<XrAction, const char*>> bindings) {
    std::vector<XrActionSuggestedBinding> suggested;
    for (const auto& [action, path] : bindings) suggested.push_back({action, Path(path)});
    const XrInteractionProfileSuggestedBinding info = {XR_TYPE_INTERACTION_PROFILE_SUGGESTED_BINDING, nullptr,
                                                       Path(profile), static_cast<std::uint32_t>(suggested.size()),
                                                       suggested.data()};
    return SuggestInteractionProfileBindings(instance_, &info);
}

XrResult SimulatorTest::Attach(XrSession session, std::vector<XrActionSet> sets) {
    const XrSessionActionSetsAttachInfo info = {XR_TYPE_SESSION_ACTION_SETS_ATTACH_INFO, nullptr,
                                                static_cast<std::uint32_t>(sets.size()), sets.data()};
    return AttachSessionActionSets(session, &info);
}

XrResult SimulatorTest::Sync(XrSession session, std::vector<XrActionSet> sets) {
    std::vector<XrActiveActionSet> active;
    for (const XrActionSet set : sets) active.push_back({set, XR_NULL_PATH});
    const XrActionsSyncInfo info = {XR_TYPE_ACTIONS_SYNC_INFO, nullptr, static_cast<std::uint32_t>(active.size()),
                                    active.data()};
    return SyncActions(session, &info);
}

XrSpace SimulatorTest::MakeSpace(XrSession session, XrReferenceSpaceType type, const XrPosef& pose) {
    const XrReferenceSpaceCreateInfo info = {XR_TYPE_REFERENCE_SPACE_CREATE_INFO, nullptr, type, pose};
    XrSpace space = XR_NULL_HANDLE;
    EXPECT_EQ(CreateReferenceSpace(session, &info, &space), XR_SUCCESS);
    return space;
}

XrSpaceLocation SimulatorTest::Locate(XrSpace space, XrSpace base, XrTime time) {
    auto location = Typed<XrSpaceLocation>(XR_TYPE_SPACE_LOCATION);
    EXPECT_EQ(LocateSpace(space, base, time, &location), XR_SUCCESS);
    return location;
}

}  // namespace simulator_test
