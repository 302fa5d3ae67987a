#include "examples/velmoor_demo/application.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "examples/velmoor_demo/check.h"
#include "examples/velmoor_demo/game_tools.h"
#include "xr/location.h"

namespace demo {
namespace {

// Without a graphics device there is no way but the first one.
constexpr char kHeadless[] = "XR_MND_headless";
constexpr const char* kDrawing[] = {"XR_MNDX_egl_enable", "XR_KHR_opengl_es_enable"};

// What a mixed-reality application wants to know of the room; the demo runs without them, too.
constexpr const char* kSceneExtensions[] = {
    "XR_KS_spatial_entity",
    "XR_KS_spatial_entity_query",
    "XR_KS_spatial_entity_storage",
    "XR_KS_spatial_entity_container",
    "XR_KS_scene",
};

// With it the game offers tools to an agent; without the layer nobody lists it.
constexpr char kExternalTools[] = "XR_KESTX1_orvanic_external_tool";

std::set<std::string> OfferedExtensions() {
    std::uint32_t count = 0;
    Check(xrEnumerateInstanceExtensionProperties(nullptr, 0, &count, nullptr),
          "xrEnumerateInstanceExtensionProperties");
    XrExtensionProperties empty = {};
    empty.type = XR_TYPE_EXTENSION_PROPERTIES;
    std::vector<XrExtensionProperties> properties(count, empty);
    Check(xrEnumerateInstanceExtensionProperties(nullptr, count, &count, properties.data()),
          "xrEnumerateInstanceExtensionProperties");
    std::set<std::string> names;
    for (const XrExtensionProperties& row : properties) names.insert(row.extensionName);
    return names;
}

void TellThatNothingIsDrawn(const std::string& why) {
    Report::Line("Running headless: " + why);
}

void MisplaceHands(std::array<HandState, 2>& hands) {
    for (HandState& hand : hands) {
        if (hand.grip) hand.grip->position.y += 0.15f;
        if (hand.aim) hand.aim->position.y += 0.15f;
    }
}

}  // namespace

Application::Application(bool headless, Fault fault) : fault_(fault), game_(fault) {
    std::string why;
    if (!headless) gles_ = Gles::Make(why);
    if (!why.empty()) TellThatNothingIsDrawn(why);
}

Application::~Application() {
    picture_.reset();
    controls_.reset();
    if (view_ != XR_NULL_HANDLE) xrDestroySpace(view_);
    if (stage_ != XR_NULL_HANDLE) xrDestroySpace(stage_);
    if (session_ != XR_NULL_HANDLE) xrDestroySession(session_);
    if (instance_ != XR_NULL_HANDLE) xrDestroyInstance(instance_);
}

void Application::Start() {
    CreateInstance();
    CreateSession();
    stage_ = CreateReferenceSpace(XR_REFERENCE_SPACE_TYPE_STAGE);
    view_ = CreateReferenceSpace(XR_REFERENCE_SPACE_TYPE_VIEW);
    controls_ = std::make_unique<Controls>(instance_, session_);
    if (gles_) picture_ = std::make_unique<Picture>(instance_, system_, session_, *gles_);
}

void Application::CreateInstance() {
    const std::set<std::string> offered = OfferedExtensions();
    const auto is_offered = [&](const char* name) { return offered.count(name) > 0; };
    if (gles_ && !std::all_of(std::begin(kDrawing), std::end(kDrawing), is_offered)) {
        TellThatNothingIsDrawn("the runtime takes no OpenGL ES by EGL");
        gles_.reset();
    }
    std::vector<const char*> extensions;
    if (gles_) extensions.assign(std::begin(kDrawing), std::end(kDrawing));
    if (!gles_ || is_offered(kHeadless)) extensions.push_back(kHeadless);
    for (const char* name : kSceneExtensions) {
        if (is_offered(name)) extensions.push_back(name);
    }
    if (is_offered(kExternalTools)) extensions.push_back(kExternalTools);
    XrInstanceCreateInfo info = {};
    info.type = XR_TYPE_INSTANCE_CREATE_INFO;
    std::strcpy(info.applicationInfo.applicationName, "velmoor_demo");
    info.applicationInfo.applicationVersion = 1;
    std::strcpy(info.applicationInfo.engineName, "none");
    // 1.0 and not newer: older loaders know nothing else, and the demo needs nothing else.
    info.applicationInfo.apiVersion = XR_MAKE_VERSION(1, 0, 0);
    info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
    info.enabledExtensionNames = extensions.data();
    Check(xrCreateInstance(&info, &instance_), "xrCreateInstance");

    XrInstanceProperties properties = {};
    properties.type = XR_TYPE_INSTANCE_PROPERTIES;
    Check(xrGetInstanceProperties(instance_, &properties), "xrGetInstanceProperties");
    Report::Line(std::string("Running on ") + properties.runtimeName);
    if (const int tools = RegisterGameTools(instance_, game_)) {
        Report::Line("Offering " + std::to_string(tools) + " tools to agents");
    }
}

void Application::CreateSession() {
    const XrSystemGetInfo system_info = {XR_TYPE_SYSTEM_GET_INFO, nullptr, XR_FORM_FACTOR_HEAD_MOUNTED_DISPLAY};
    Check(xrGetSystem(instance_, &system_info, &system_), "xrGetSystem");
    const XrSessionCreateInfo info = {XR_TYPE_SESSION_CREATE_INFO, nullptr, 0, system_};
    if (gles_) {
        const XrResult result = CreateSessionThatDraws(info);
        if (XR_SUCCEEDED(result)) return;
        TellThatNothingIsDrawn("the runtime does not take this OpenGL ES: " + std::to_string(result));
        gles_.reset();
    }
    Check(xrCreateSession(instance_, &info, &session_), "xrCreateSession");
}

XrResult Application::CreateSessionThatDraws(XrSessionCreateInfo info) {
    PFN_xrGetOpenGLESGraphicsRequirementsKHR get_requirements = nullptr;
    Check(xrGetInstanceProcAddr(instance_, "xrGetOpenGLESGraphicsRequirementsKHR",
                                reinterpret_cast<PFN_xrVoidFunction*>(&get_requirements)),
          "xrGetInstanceProcAddr");
    XrGraphicsRequirementsOpenGLESKHR requirements = {};
    requirements.type = XR_TYPE_GRAPHICS_REQUIREMENTS_OPENGL_ES_KHR;
    Check(get_requirements(instance_, system_, &requirements), "xrGetOpenGLESGraphicsRequirementsKHR");
    info.next = &gles_->binding();
    return xrCreateSession(instance_, &info, &session_);
}

XrSpace Application::CreateReferenceSpace(XrReferenceSpaceType type) {
    const XrReferenceSpaceCreateInfo info = {XR_TYPE_REFERENCE_SPACE_CREATE_INFO, nullptr, type,
                                             orvanic_xr::kIdentityPose};
    XrSpace space = XR_NULL_HANDLE;
    Check(xrCreateReferenceSpace(session_, &info, &space), "xrCreateReferenceSpace");
    return space;
}

void Application::Run(std::optional<double> seconds, const std::atomic<bool>& stop) {
    Start();
    while (!finished_) {
        PollEvents();
        if (stop || (seconds && IsOver(*seconds))) RequestExit();
        if (running_) {
            RunFrame();
            report_.OnceASecond(SecondsOfFrames(), state_);
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
}

bool Application::IsOver(double seconds) const {
    const std::chrono::duration<double> here = std::chrono::steady_clock::now() - start_;
    return (first_frame_ > 0 ? SecondsOfFrames() : here.count()) >= seconds;
}

void Application::PollEvents() {
    while (true) {
        XrEventDataBuffer event = {};
        event.type = XR_TYPE_EVENT_DATA_BUFFER;
        if (Check(xrPollEvent(instance_, &event), "xrPollEvent") == XR_EVENT_UNAVAILABLE) return;
        switch (event.type) {
            case XR_TYPE_EVENT_DATA_SESSION_STATE_CHANGED: {
                const auto& changed = *reinterpret_cast<const XrEventDataSessionStateChanged*>(&event);
                if (changed.session == session_) OnSessionState(changed.state);
                break;
            }
            case XR_TYPE_EVENT_DATA_INTERACTION_PROFILE_CHANGED:
                TellProfiles();
                break;
            case XR_TYPE_EVENT_DATA_INSTANCE_LOSS_PENDING:
                finished_ = true;
                break;
            default:
                break;
        }
    }
}

void Application::OnSessionState(XrSessionState state) {
    state_ = state;
    Report::Line(std::string("  * session is ") + StateName(state));
    switch (state) {
        case XR_SESSION_STATE_READY: {
            const XrSessionBeginInfo info = {XR_TYPE_SESSION_BEGIN_INFO, nullptr,
                                             XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO};
            Check(xrBeginSession(session_, &info), "xrBeginSession");
            running_ = true;
            break;
        }
        case XR_SESSION_STATE_STOPPING:
            running_ = false;
            Check(xrEndSession(session_), "xrEndSession");
            break;
        case XR_SESSION_STATE_EXITING:
        case XR_SESSION_STATE_LOSS_PENDING:
            finished_ = true;
            break;
        default:
            break;
    }
}

void Application::TellProfiles() const {
    for (std::size_t hand = 0; hand < kHandNames.size(); ++hand) {
        Report::Line(std::string("  * ") + kHandNames[hand] + " hand is fed by " + controls_->ProfileOf(hand));
    }
}

// The runtime answers with the state STOPPING; until then frames go on.
void Application::RequestExit() {
    if (exit_requested_) return;
    exit_requested_ = true;
    if (xrRequestExitSession(session_) == XR_ERROR_SESSION_NOT_RUNNING) finished_ = true;
}

void Application::RunFrame() {
    XrFrameState frame = {};
    frame.type = XR_TYPE_FRAME_STATE;
    Check(xrWaitFrame(session_, nullptr, &frame), "xrWaitFrame");
    newest_frame_ = frame.predictedDisplayTime;
    if (first_frame_ == 0) first_frame_ = newest_frame_;
    report_.FrameBegins(newest_frame_, frame.predictedDisplayPeriod);
    Check(xrBeginFrame(session_, nullptr), "xrBeginFrame");
    game_.AdvanceFrame(newest_frame_);

    auto hands = controls_->Update(stage_, frame.predictedDisplayTime);
    if (fault_ == Fault::kPose) MisplaceHands(hands);
    report_.Frame(LocateHead(frame.predictedDisplayTime), hands);
    const Game::Standing standing = game_.standing();
    report_.Play(standing);

    XrFrameEndInfo end = {XR_TYPE_FRAME_END_INFO,           nullptr, frame.predictedDisplayTime,
                          XR_ENVIRONMENT_BLEND_MODE_OPAQUE, 0,       nullptr};
    const XrCompositionLayerBaseHeader* layer = nullptr;
    if (picture_) end.environmentBlendMode = picture_->blend_mode();
    if (picture_ && frame.shouldRender) {
        const auto boxes = MakeScene(standing, game_.LatestCubes(), hands, SecondsOfFrames());
        layer = picture_->Draw(stage_, frame.predictedDisplayTime, boxes);
    }
    if (layer) {
        end.layerCount = 1;
        end.layers = &layer;
    }
    Check(xrEndFrame(session_, &end), "xrEndFrame");
}

std::optional<XrPosef> Application::LocateHead(XrTime time) const {
    XrSpaceLocation location = {XR_TYPE_SPACE_LOCATION, nullptr, 0, orvanic_xr::kIdentityPose};
    Check(xrLocateSpace(view_, stage_, time, &location), "xrLocateSpace");
    if (!orvanic_xr::HasValidPose(location.locationFlags)) return std::nullopt;
    return location.pose;
}

}  // namespace demo
