// What the automation layer adds to a frame of an application that nobody simulates: all its hooks of a frame together,
// against the same calls straight to a runtime that does next to nothing. `allocs` is per frame.
#include <benchmark/benchmark.h>
#include <openxr/openxr.h>

#include <array>
#include <cstdint>
#include <string_view>

#include "automation/negotiation.h"
#include "tests/fakes/allocation_counter.h"
#include "tests/fakes/loader_records.h"

namespace {

template <typename Handle>
Handle HandleOf(std::uint64_t number) {
    return reinterpret_cast<Handle>(number);
}

// A zeroed record that says what it is.
template <typename Record>
Record Typed(XrStructureType type) {
    Record record = {};
    record.type = type;
    return record;
}

template <typename Handle>
XrResult MakeHandle(Handle* handle) {
    static std::uint64_t last = 0x1000;
    *handle = HandleOf<Handle>(++last);
    return XR_SUCCESS;
}

constexpr XrPosef kPose = {{0, 0, 0, 1}, {1, 2, 3}};

// The runtime. What is not here answers XR_SUCCESS and looks at nothing.
XRAPI_ATTR XrResult XRAPI_CALL Succeed() {
    return XR_SUCCESS;
}
XRAPI_ATTR XrResult XRAPI_CALL WaitFrame(XrSession, const XrFrameWaitInfo*, XrFrameState* state) {
    state->predictedDisplayTime += state->predictedDisplayPeriod;
    return XR_SUCCESS;
}
XRAPI_ATTR XrResult XRAPI_CALL LocateSpace(XrSpace, XrSpace, XrTime, XrSpaceLocation* location) {
    location->pose = kPose;
    location->locationFlags = 0xF;
    return XR_SUCCESS;
}
XRAPI_ATTR XrResult XRAPI_CALL LocateViews(XrSession, const XrViewLocateInfo*, XrViewState* state, std::uint32_t,
                                           std::uint32_t* count, XrView* views) {
    *count = 2;
    state->viewStateFlags = 0xF;
    views[0].pose = views[1].pose = kPose;
    return XR_SUCCESS;
}
XRAPI_ATTR XrResult XRAPI_CALL GetBoolean(XrSession, const XrActionStateGetInfo*, XrActionStateBoolean* state) {
    state->isActive = XR_TRUE;
    return XR_SUCCESS;
}
XRAPI_ATTR XrResult XRAPI_CALL StringToPath(XrInstance, const char* text, XrPath* path) {
    *path = std::hash<std::string_view>()(text) | 1;
    return XR_SUCCESS;
}
XRAPI_ATTR XrResult XRAPI_CALL AcquireImage(XrSwapchain, const XrSwapchainImageAcquireInfo*, std::uint32_t* index) {
    *index = 0;
    return XR_SUCCESS;
}
template <typename Info, typename Parent, typename Handle>
XRAPI_ATTR XrResult XRAPI_CALL Make(Parent, const Info*, Handle* handle) {
    return MakeHandle(handle);
}

template <typename Function>
PFN_xrVoidFunction Erased(Function function) {
    return reinterpret_cast<PFN_xrVoidFunction>(function);
}

XRAPI_ATTR XrResult XRAPI_CALL Lookup(XrInstance instance, const char* name, PFN_xrVoidFunction* function) {
    static const struct {
        std::string_view name;
        PFN_xrVoidFunction function;
    } kRows[] = {
        {"xrWaitFrame", Erased(WaitFrame)},
        {"xrLocateSpace", Erased(LocateSpace)},
        {"xrLocateViews", Erased(LocateViews)},
        {"xrGetActionStateBoolean", Erased(GetBoolean)},
        {"xrStringToPath", Erased(StringToPath)},
        {"xrAcquireSwapchainImage", Erased(AcquireImage)},
        {"xrCreateSession", Erased(Make<XrSessionCreateInfo, XrInstance, XrSession>)},
        {"xrCreateReferenceSpace", Erased(Make<XrReferenceSpaceCreateInfo, XrSession, XrSpace>)},
        {"xrCreateActionSpace", Erased(Make<XrActionSpaceCreateInfo, XrSession, XrSpace>)},
        {"xrCreateActionSet", Erased(Make<XrActionSetCreateInfo, XrInstance, XrActionSet>)},
        {"xrCreateAction", Erased(Make<XrActionCreateInfo, XrActionSet, XrAction>)},
        {"xrCreateSwapchain", Erased(Make<XrSwapchainCreateInfo, XrSession, XrSwapchain>)},
    };
    *function = instance == XR_NULL_HANDLE ? nullptr : Erased(Succeed);
    for (const auto& row : kRows) {
        if (row.name == name) *function = row.function;
    }
    return XR_SUCCESS;
}

XRAPI_ATTR XrResult XRAPI_CALL CreateBelow(const XrInstanceCreateInfo*, const XrApiLayerCreateInfo*,
                                           XrInstance* instance) {
    return MakeHandle(instance);
}

// A game that draws one swapchain for each eye, follows two hands, and has six buttons.
struct Game {
    explicit Game(PFN_xrGetInstanceProcAddr lookup, XrInstance instance) {
        const auto load = [&](auto& function, const char* name) {
            lookup(instance, name, reinterpret_cast<PFN_xrVoidFunction*>(&function));
        };
        load(create_session, "xrCreateSession");
        load(create_space, "xrCreateReferenceSpace");
        load(create_set, "xrCreateActionSet");
        load(create_action, "xrCreateAction");
        load(create_action_space, "xrCreateActionSpace");
        load(create_swapchain, "xrCreateSwapchain");
        load(wait_frame, "xrWaitFrame");
        load(begin_frame, "xrBeginFrame");
        load(end_frame, "xrEndFrame");
        load(sync, "xrSyncActions");
        load(get_boolean, "xrGetActionStateBoolean");
        load(locate_space, "xrLocateSpace");
        load(locate_views, "xrLocateViews");
        load(acquire, "xrAcquireSwapchainImage");
        load(wait_image, "xrWaitSwapchainImage");
        load(release, "xrReleaseSwapchainImage");
        // With graphics, so that the layer looks after the swapchains. It asks for nothing but the type until somebody
        // wants a picture.
        auto graphics = Typed<XrBaseInStructure>(XR_TYPE_GRAPHICS_BINDING_OPENGL_XCB_KHR);
        const XrSessionCreateInfo session_info = {XR_TYPE_SESSION_CREATE_INFO, &graphics, 0, 1};
        create_session(instance, &session_info, &session);
        const XrReferenceSpaceCreateInfo space_info = {XR_TYPE_REFERENCE_SPACE_CREATE_INFO, nullptr,
                                                       XR_REFERENCE_SPACE_TYPE_STAGE, kPose};
        create_space(session, &space_info, &stage);
        const XrActionSetCreateInfo set_info = {XR_TYPE_ACTION_SET_CREATE_INFO, nullptr, "set", "Set", 0};
        create_set(instance, &set_info, &active.actionSet);
        const XrActionCreateInfo action_info = {
            XR_TYPE_ACTION_CREATE_INFO, nullptr, "act", XR_ACTION_TYPE_BOOLEAN_INPUT, 0, nullptr, "Act"};
        create_action(active.actionSet, &action_info, &get_info.action);
        const XrActionSpaceCreateInfo hand_info = {XR_TYPE_ACTION_SPACE_CREATE_INFO, nullptr, get_info.action, 0,
                                                   kPose};
        for (XrSpace& hand : hands) create_action_space(session, &hand_info, &hand);
        auto swapchain_info = Typed<XrSwapchainCreateInfo>(XR_TYPE_SWAPCHAIN_CREATE_INFO);
        swapchain_info.format = 0x8058;  // GL_RGBA8
        swapchain_info.faceCount = swapchain_info.arraySize = 1;
        for (XrSwapchain& swapchain : swapchains) create_swapchain(session, &swapchain_info, &swapchain);
    }

    void RunFrame() {
        wait_frame(session, nullptr, &frame);
        begin_frame(session, nullptr);
        sync(session, &sync_info);
        auto state = Typed<XrActionStateBoolean>(XR_TYPE_ACTION_STATE_BOOLEAN);
        for (int i = 0; i < 6; ++i) get_boolean(session, &get_info, &state);
        auto location = Typed<XrSpaceLocation>(XR_TYPE_SPACE_LOCATION);
        for (const XrSpace hand : hands) locate_space(hand, stage, frame.predictedDisplayTime, &location);
        const XrViewLocateInfo view_info = {XR_TYPE_VIEW_LOCATE_INFO, nullptr,
                                            XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO, frame.predictedDisplayTime,
                                            stage};
        auto view_state = Typed<XrViewState>(XR_TYPE_VIEW_STATE);
        std::array<XrView, 2> views = {Typed<XrView>(XR_TYPE_VIEW), Typed<XrView>(XR_TYPE_VIEW)};
        std::uint32_t count = 2;
        locate_views(session, &view_info, &view_state, 2, &count, views.data());
        for (const XrSwapchain swapchain : swapchains) {
            std::uint32_t index = 0;
            acquire(swapchain, nullptr, &index);
            wait_image(swapchain, nullptr);
            release(swapchain, nullptr);
        }
        auto end = Typed<XrFrameEndInfo>(XR_TYPE_FRAME_END_INFO);
        end.displayTime = frame.predictedDisplayTime;
        end_frame(session, &end);
        benchmark::DoNotOptimize(views);
        benchmark::DoNotOptimize(location);
    }

    PFN_xrCreateSession create_session = nullptr;
    PFN_xrCreateReferenceSpace create_space = nullptr;
    PFN_xrCreateActionSet create_set = nullptr;
    PFN_xrCreateAction create_action = nullptr;
    PFN_xrCreateActionSpace create_action_space = nullptr;
    PFN_xrCreateSwapchain create_swapchain = nullptr;
    PFN_xrWaitFrame wait_frame = nullptr;
    PFN_xrBeginFrame begin_frame = nullptr;
    PFN_xrEndFrame end_frame = nullptr;
    PFN_xrSyncActions sync = nullptr;
    PFN_xrGetActionStateBoolean get_boolean = nullptr;
    PFN_xrLocateSpace locate_space = nullptr;
    PFN_xrLocateViews locate_views = nullptr;
    PFN_xrAcquireSwapchainImage acquire = nullptr;
    PFN_xrWaitSwapchainImage wait_image = nullptr;
    PFN_xrReleaseSwapchainImage release = nullptr;
    XrSession session = XR_NULL_HANDLE;
    XrSpace stage = XR_NULL_HANDLE;
    std::array<XrSpace, 4> hands = {};
    std::array<XrSwapchain, 2> swapchains = {};
    XrActiveActionSet active = {};
    XrActionsSyncInfo sync_info = {XR_TYPE_ACTIONS_SYNC_INFO, nullptr, 1, &active};
    XrActionStateGetInfo get_info = Typed<XrActionStateGetInfo>(XR_TYPE_ACTION_STATE_GET_INFO);
    XrFrameState frame = {XR_TYPE_FRAME_STATE, nullptr, 1, 13'888'888, XR_TRUE};
};

Game WithLayer() {
    XrApiLayerNextInfo next = orvanic_xr::NextInfo("XR_APILAYER_VELMOOR_automation", Lookup, CreateBelow);
    const XrApiLayerCreateInfo layers = orvanic_xr::LayerInfo(&next);
    const std::array names = {"XR_EXT_conformance_automation", "XR_KEST_pronto_controller_plus",
                              "XR_KESTX1_simulator_compositor_output_capture"};
    auto info = Typed<XrInstanceCreateInfo>(XR_TYPE_INSTANCE_CREATE_INFO);
    info.enabledExtensionCount = names.size();
    info.enabledExtensionNames = names.data();
    XrInstance instance = XR_NULL_HANDLE;
    automation::CreateApiLayerInstance(&info, &layers, &instance);
    return Game(automation::GetInstanceProcAddr, instance);
}

void Measure(benchmark::State& state, Game game) {
    game.RunFrame();
    const auto before = orvanic_xr::AllocationsOfThisThread();
    for (auto _ : state) game.RunFrame();
    state.counters["allocs"] = benchmark::Counter(static_cast<double>(orvanic_xr::AllocationsOfThisThread() - before),
                                                  benchmark::Counter::kAvgIterations);
}

void BM_FrameWithoutTheLayer(benchmark::State& state) {
    Measure(state, Game(Lookup, HandleOf<XrInstance>(1)));
}
BENCHMARK(BM_FrameWithoutTheLayer);

void BM_FrameWithTheLayerAndNothingSimulated(benchmark::State& state) {
    Measure(state, WithLayer());
}
BENCHMARK(BM_FrameWithTheLayerAndNothingSimulated);

}  // namespace

BENCHMARK_MAIN();
