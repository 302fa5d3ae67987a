#include "simulator/views.h"

#include <algorithm>

#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/session.h"
#include "simulator/spaces.h"
#include "xr/pose_math.h"
#include "xr/simulator_view.h"

namespace simulator {
namespace {

// What both Vulkan and OpenGL promise of any device.
constexpr std::uint32_t kMaxSamples = 4;
// The one that suits most applications first.
constexpr std::array kBlendModes = {XR_ENVIRONMENT_BLEND_MODE_OPAQUE, XR_ENVIRONMENT_BLEND_MODE_ADDITIVE,
                                    XR_ENVIRONMENT_BLEND_MODE_ALPHA_BLEND};

void CheckSystem(const Runtime& runtime, XrInstance instance, XrSystemId system) {
    runtime.Get(instance)->CheckSystem(system);
}

}  // namespace

void CheckConfiguration(XrViewConfigurationType type) {
    if (type != XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO) Refuse(XR_ERROR_VIEW_CONFIGURATION_TYPE_UNSUPPORTED);
}

std::optional<XrPosef> HeadPose(const Session& session, XrTime time) {
    const Device& head = session.devices[TopLevel::kHead];
    const auto view = head.IsActive() ? head.profile->Find(TopLevel::kHead, "input/view_kest/pose") : std::nullopt;
    return view ? head.poses[*view] : session.head.At(time);
}

std::array<EyeView, 2> EyesOf(const XrPosef& head) {
    return {EyeView{orvanic_xr::SimulatorEye(head, 0), orvanic_xr::kSimulatorFieldOfView},
            EyeView{orvanic_xr::SimulatorEye(head, 1), orvanic_xr::kSimulatorFieldOfView}};
}

bool IsOffered(XrEnvironmentBlendMode mode) {
    return std::find(kBlendModes.begin(), kBlendModes.end(), mode) != kBlendModes.end();
}

XrResult EnumerateViewConfigurations(XrInstance instance, XrSystemId system, std::uint32_t capacity,
                                     std::uint32_t* count, XrViewConfigurationType* types) {
    return Guarded([&](Runtime& runtime) {
        CheckSystem(runtime, instance, system);
        return WriteList(std::array{XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO}, capacity, count, types);
    });
}

XrResult GetViewConfigurationProperties(XrInstance instance, XrSystemId system, XrViewConfigurationType type,
                                        XrViewConfigurationProperties* properties) {
    return Guarded([&](Runtime& runtime) {
        CheckSystem(runtime, instance, system);
        RequireType(properties, XR_TYPE_VIEW_CONFIGURATION_PROPERTIES);
        CheckConfiguration(type);
        properties->viewConfigurationType = type;
        properties->fovMutable = XR_FALSE;
        return XR_SUCCESS;
    });
}

XrResult EnumerateViewConfigurationViews(XrInstance instance, XrSystemId system, XrViewConfigurationType type,
                                         std::uint32_t capacity, std::uint32_t* count, XrViewConfigurationView* views) {
    return Guarded([&](Runtime& runtime) {
        CheckSystem(runtime, instance, system);
        CheckConfiguration(type);
        const Settings& settings = runtime.Get(instance)->settings;
        return WriteElements(2, capacity, count, views, [&](std::size_t i) {
            XrViewConfigurationView& view = views[i];
            RequireType(&view, XR_TYPE_VIEW_CONFIGURATION_VIEW);
            view.recommendedImageRectWidth = settings.eye_size.width;
            view.recommendedImageRectHeight = settings.eye_size.height;
            view.maxImageRectWidth = settings.LargestImage().width;
            view.maxImageRectHeight = settings.LargestImage().height;
            view.recommendedSwapchainSampleCount = 1;
            view.maxSwapchainSampleCount = kMaxSamples;
        });
    });
}

XrResult EnumerateEnvironmentBlendModes(XrInstance instance, XrSystemId system, XrViewConfigurationType type,
                                        std::uint32_t capacity, std::uint32_t* count, XrEnvironmentBlendMode* modes) {
    return Guarded([&](Runtime& runtime) {
        CheckSystem(runtime, instance, system);
        CheckConfiguration(type);
        return WriteList(kBlendModes, capacity, count, modes);
    });
}

XrResult LocateViews(XrSession session, const XrViewLocateInfo* info, XrViewState* state, std::uint32_t capacity,
                     std::uint32_t* count, XrView* views) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(info, XR_TYPE_VIEW_LOCATE_INFO);
        RequireType(state, XR_TYPE_VIEW_STATE);
        CheckConfiguration(info->viewConfigurationType);
        const auto base = runtime.Get(info->space);
        Require(base->session == owner);
        if (info->displayTime <= 0) Refuse(XR_ERROR_TIME_INVALID);
        const auto head = HeadPose(*owner, info->displayTime);
        const auto base_pose = WorldPose(*base, info->displayTime);
        const bool located = head && base_pose;
        if (head) owner->told_views.Tell(info->displayTime, *head);
        const auto eyes = EyesOf(head.value_or(orvanic_xr::kIdentityPose));
        state->viewStateFlags = located ? XR_VIEW_STATE_ORIENTATION_VALID_BIT | XR_VIEW_STATE_POSITION_VALID_BIT |
                                              XR_VIEW_STATE_ORIENTATION_TRACKED_BIT | XR_VIEW_STATE_POSITION_TRACKED_BIT
                                        : 0;
        return WriteElements(eyes.size(), capacity, count, views, [&](std::size_t i) {
            RequireType(&views[i], XR_TYPE_VIEW);
            views[i].pose = located ? RelativePose(eyes[i].pose, *base_pose) : orvanic_xr::kIdentityPose;
            views[i].fov = eyes[i].fov;
        });
    });
}

}  // namespace simulator
