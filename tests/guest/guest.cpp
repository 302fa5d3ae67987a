#include "tests/guest/guest.h"

#include <dlfcn.h>

#include <cstring>

#include "velmoor/invoke_tool.h"

namespace guest_test {
namespace {

template <std::size_t kSize>
void Fill(char (&field)[kSize], const std::string& text) {
    text.copy(field, kSize - 1);
}

}  // namespace

void Guest::CreateInstance(XrVersion version) {
    const char* const extensions[] = {"XR_MND_headless"};
    XrInstanceCreateInfo info = {XR_TYPE_INSTANCE_CREATE_INFO, nullptr, 0, {}, 0, nullptr, 1, extensions};
    Fill(info.applicationInfo.applicationName, "guest");
    info.applicationInfo.apiVersion = version;
    const XrResult result = xrCreateInstance(&info, &instance_);
    if (result == XR_ERROR_API_VERSION_UNSUPPORTED) GTEST_SKIP() << "the loader is older than that";
    ASSERT_EQ(result, XR_SUCCESS);
}

void Guest::DestroyInstance() {
    if (!instance_) return;
    EXPECT_EQ(xrDestroyInstance(std::exchange(instance_, XR_NULL_HANDLE)), XR_SUCCESS);
}

void Guest::CreateSession() {
    const XrSystemGetInfo system_info = {XR_TYPE_SYSTEM_GET_INFO, nullptr, XR_FORM_FACTOR_HEAD_MOUNTED_DISPLAY};
    XrSessionCreateInfo info = {XR_TYPE_SESSION_CREATE_INFO, nullptr, 0, XR_NULL_SYSTEM_ID};
    ASSERT_EQ(xrGetSystem(instance_, &system_info, &info.systemId), XR_SUCCESS);
    ASSERT_EQ(xrCreateSession(instance_, &info, &session_), XR_SUCCESS);
    const XrSessionBeginInfo begin = {XR_TYPE_SESSION_BEGIN_INFO, nullptr, XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO};
    ASSERT_EQ(xrBeginSession(session_, &begin), XR_SUCCESS);
    XrEventDataBuffer event = {XR_TYPE_EVENT_DATA_BUFFER, nullptr, {}};
    while (xrPollEvent(instance_, &event) == XR_SUCCESS) event = {XR_TYPE_EVENT_DATA_BUFFER, nullptr, {}};
    RunFrame();
}

void Guest::DestroySession() {
    EXPECT_EQ(xrRequestExitSession(session_), XR_SUCCESS);
    EXPECT_EQ(xrEndSession(session_), XR_SUCCESS);
    EXPECT_EQ(xrDestroySession(std::exchange(session_, XR_NULL_HANDLE)), XR_SUCCESS);
}

void Guest::RunFrame(const std::vector<XrActionSet>& sets) {
    XrFrameState state = {XR_TYPE_FRAME_STATE, nullptr, 0, 0, XR_FALSE};
    ASSERT_EQ(xrWaitFrame(session_, nullptr, &state), XR_SUCCESS);
    ASSERT_EQ(xrBeginFrame(session_, nullptr), XR_SUCCESS);
    time_ = state.predictedDisplayTime;
    if (!sets.empty()) {
        EXPECT_EQ(Sync(sets), XR_SUCCESS);
    }
    const XrFrameEndInfo end = {XR_TYPE_FRAME_END_INFO, nullptr, time_, XR_ENVIRONMENT_BLEND_MODE_OPAQUE, 0, nullptr};
    ASSERT_EQ(xrEndFrame(session_, &end), XR_SUCCESS);
}

XrPath Guest::Path(const std::string& text) {
    XrPath path = XR_NULL_PATH;
    EXPECT_EQ(xrStringToPath(instance_, text.c_str(), &path), XR_SUCCESS) << text;
    return path;
}

XrActionSet Guest::MakeActionSet(const std::string& name) {
    XrActionSetCreateInfo info = {XR_TYPE_ACTION_SET_CREATE_INFO, nullptr, {}, {}, 0};
    Fill(info.actionSetName, name);
    Fill(info.localizedActionSetName, name);
    XrActionSet set = XR_NULL_HANDLE;
    EXPECT_EQ(xrCreateActionSet(instance_, &info, &set), XR_SUCCESS);
    return set;
}

XrAction Guest::MakeAction(XrActionSet set, const std::string& name, XrActionType type,
                           const std::vector<const char*>& subactions) {
    std::vector<XrPath> paths;
    for (const char* subaction : subactions) paths.push_back(Path(subaction));
    const auto count = static_cast<std::uint32_t>(paths.size());
    XrActionCreateInfo info = {XR_TYPE_ACTION_CREATE_INFO, nullptr, {}, type, count, paths.data(), {}};
    Fill(info.actionName, name);
    Fill(info.localizedActionName, name);
    XrAction action = XR_NULL_HANDLE;
    EXPECT_EQ(xrCreateAction(set, &info, &action), XR_SUCCESS);
    return action;
}

XrSpace Guest::MakeActionSpace(XrAction action, const char* hand, const XrPosef& pose) {
    const XrActionSpaceCreateInfo info = {XR_TYPE_ACTION_SPACE_CREATE_INFO, nullptr, action, Path(hand), pose};
    XrSpace space = XR_NULL_HANDLE;
    EXPECT_EQ(xrCreateActionSpace(session_, &info, &space), XR_SUCCESS);
    return space;
}

XrSpace Guest::MakeSpace(XrReferenceSpaceType type) {
    const XrReferenceSpaceCreateInfo info = {XR_TYPE_REFERENCE_SPACE_CREATE_INFO, nullptr, type, kIdentity};
    XrSpace space = XR_NULL_HANDLE;
    EXPECT_EQ(xrCreateReferenceSpace(session_, &info, &space), XR_SUCCESS);
    return space;
}

XrResult Guest::Suggest(const std::string& profile, Bindings bindings) {
    std::vector<XrActionSuggestedBinding> suggested;
    for (const auto& [action, path] : bindings) suggested.push_back({action, Path(path)});
    const XrInteractionProfileSuggestedBinding info = {XR_TYPE_INTERACTION_PROFILE_SUGGESTED_BINDING, nullptr,
                                                       Path("/interaction_profiles/" + profile),
                                                       static_cast<std::uint32_t>(suggested.size()), suggested.data()};
    return xrSuggestInteractionProfileBindings(instance_, &info);
}

XrResult Guest::Attach(const std::vector<XrActionSet>& sets) {
    const XrSessionActionSetsAttachInfo info = {XR_TYPE_SESSION_ACTION_SETS_ATTACH_INFO, nullptr,
                                                static_cast<std::uint32_t>(sets.size()), sets.data()};
    return xrAttachSessionActionSets(session_, &info);
}

XrResult Guest::Sync(const std::vector<XrActionSet>& sets) {
    std::vector<XrActiveActionSet> active;
    for (const XrActionSet set : sets) active.push_back({set, XR_NULL_PATH});
    const XrActionsSyncInfo info = {XR_TYPE_ACTIONS_SYNC_INFO, nullptr, static_cast<std::uint32_t>(active.size()),
                                    active.data()};
    return xrSyncActions(session_, &info);
}

XrPosef Guest::Locate(XrSpace space, XrSpace base) {
    XrSpaceLocation location = {XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
    EXPECT_EQ(xrLocateSpace(space, base, time_, &location), XR_SUCCESS);
    EXPECT_EQ(location.locationFlags, 0xFu);
    return location.pose;
}

float Guest::Float(XrAction action, const char* hand) {
    const XrActionStateGetInfo info = {XR_TYPE_ACTION_STATE_GET_INFO, nullptr, action, Path(hand)};
    XrActionStateFloat state = {XR_TYPE_ACTION_STATE_FLOAT, nullptr, 0, XR_FALSE, 0, XR_FALSE};
    EXPECT_EQ(xrGetActionStateFloat(session_, &info, &state), XR_SUCCESS);
    return state.currentState;
}

std::string Guest::Call(const std::string& tool, const nlohmann::json& arguments) {
    void* const layer = dlopen("libXrApiLayer_KESTX_velmoor.so", RTLD_NOW | RTLD_NOLOAD);
    if (!layer) return "the layer is not there";
    const auto invoke = reinterpret_cast<PFN_OrvanicXR_InvokeTool>(dlsym(layer, "OrvanicXR_InvokeTool"));
    std::string result(65536, '\0');
    const auto capacity = static_cast<std::uint32_t>(result.size());
    EXPECT_EQ(invoke(tool.c_str(), arguments.dump().c_str(), capacity, nullptr, result.data(), 0, nullptr, nullptr),
              ORVANIC_XR_INVOKE_SUCCESS);
    dlclose(layer);
    return nlohmann::json::parse(result.c_str()).at(0).at("text");
}

}  // namespace guest_test
