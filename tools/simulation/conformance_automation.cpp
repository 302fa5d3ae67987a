#include "tools/simulation/conformance_automation.h"

#include <memory>

#include "context/context_manager.h"
#include "diagnostics/logger.h"
#include "layer/dispatch/dispatch.h"
#include "layer/dispatch/paths.h"
#include "xr/location.h"

namespace orvanic_xr {
namespace {

constexpr char kHeadProfile[] = "/interaction_profiles/kest/head_kestx2";
constexpr char kControllerProfile[] = "/interaction_profiles/kest/pronto_controller_plus";
constexpr char kLeftHandPath[] = "/user/hand/left";
constexpr char kRightHandPath[] = "/user/hand/right";

// Where a controller rests, in STAGE space, that could not be located before it was taken over.
constexpr XrPosef kLeftRestingPose = {{0.0f, 0.0f, 0.0f, 1.0f}, {-0.2f, 1.2f, -0.4f}};
constexpr XrPosef kRightRestingPose = {{0.0f, 0.0f, 0.0f, 1.0f}, {0.2f, 1.2f, -0.4f}};

// What an activation works with, read once at its start.
struct Activation {
    XrInstance instance;
    XrSession session;
    PFN_xrSetInputDeviceActiveEXT set_active;
};

Activation BeginActivation() {
    ContextManager& manager = ContextManager::instance();
    const XrSession session = manager.getSessionState().session;
    const auto set_active =
        DispatchHolder::instance().Resolve<PFN_xrSetInputDeviceActiveEXT>("xrSetInputDeviceActiveEXT");
    return {manager.getInstanceHandle(), session, set_active};
}

OperationResult ActivateDevice(const Activation& activation, XrPath profile, const char* top_level_path) {
    const XrPath device = PathFromText(activation.instance, top_level_path);
    // A missing function answers as a runtime would that doesn't know it.
    const XrResult result = activation.set_active ? activation.set_active(activation.session, profile, device, XR_TRUE)
                                                  : XR_ERROR_FUNCTION_UNSUPPORTED;
    if (XR_FAILED(result)) {
        std::string error = "Failed to activate conformance automation for " + std::string(top_level_path) +
                            ". Error code: " + std::to_string(static_cast<int>(result));
        LogError(error);
        return Failed(std::move(error));
    }
    LogInfo("Successfully activated conformance automation for ", top_level_path);
    return Succeeded();
}

// Head, then left, then right. What was activated before a failure stays so.
OperationResult ActivateDevices(const Activation& activation) {
    const XrPath head_profile = PathFromText(activation.instance, kHeadProfile);
    OperationResult head = ActivateDevice(activation, head_profile, kHeadTopLevelPath);
    if (!head.ok) return head;
    const XrPath controller_profile = PathFromText(activation.instance, kControllerProfile);
    OperationResult left = ActivateDevice(activation, controller_profile, kLeftHandPath);
    if (!left.ok) return left;
    return ActivateDevice(activation, controller_profile, kRightHandPath);
}

struct Snapshot {
    bool head_located = false;
    bool left_located = false;
    bool right_located = false;
    XrPosef head = kIdentityPose;
    XrPosef left = kIdentityPose;
    XrPosef right = kIdentityPose;
};

Snapshot TakeSnapshot(const SessionContext& context, XrSpace base, XrTime time) {
    Snapshot snapshot;
    snapshot.head_located = QueryDevicePose(context.viewSpace, base, time, "head", snapshot.head);
    snapshot.left_located = QueryDevicePose(context.leftAimSpace, base, time, "left controller", snapshot.left);
    snapshot.right_located = QueryDevicePose(context.rightAimSpace, base, time, "right controller", snapshot.right);
    return snapshot;
}

void RestoreHead(const Snapshot& snapshot, XrSpace base) {
    if (!snapshot.head_located) {
        LogWarning("Skipping head pose restore: pose was not available before activation");
        return;
    }
    const OperationResult restored = SetDeviceLocation(kHeadTopLevelPath, kHeadPosePath, base, snapshot.head);
    if (!restored.ok) LogWarning("Failed to restore head pose after activation: ", restored.error);
}

void WriteFirstPose(const char* hand_path, const char* input, XrSpace base, const XrPosef& pose, const char* failure) {
    const OperationResult written = SetDeviceLocation(hand_path, std::string(hand_path) + input, base, pose);
    if (!written.ok) LogWarning(failure, written.error);
}

void RestoreControllers(const Snapshot& snapshot, XrSpace base) {
    if (!snapshot.left_located) {
        LogInfo(
            "Left controller pose was not available before activation; applying default resting pose so mock device "
            "has a valid initial pose");
    }
    const XrPosef left = snapshot.left_located ? snapshot.left : kLeftRestingPose;
    WriteFirstPose(kLeftHandPath, "/input/aim/pose", base, left,
                   "Failed to set left controller pose after activation: ");
    if (!snapshot.right_located) {
        LogInfo(
            "Right controller pose was not available before activation; applying default resting pose so mock device "
            "has a valid initial pose");
    }
    const XrPosef right = snapshot.right_located ? snapshot.right : kRightRestingPose;
    WriteFirstPose(kRightHandPath, "/input/aim/pose", base, right,
                   "Failed to set right controller pose after activation: ");
    // On purpose: the grip inputs start with the aim poses, so that both mirrors begin equal.
    WriteFirstPose(kLeftHandPath, "/input/grip/pose", base, left,
                   "Failed to set left controller grip pose after activation: ");
    WriteFirstPose(kRightHandPath, "/input/grip/pose", base, right,
                   "Failed to set right controller grip pose after activation: ");
}

// `pose`, given in `base_space`, in the STAGE space of `context`, or as it is where that can't be told.
XrPosef InStageSpace(const SessionContext& context, XrSpace base_space, const XrPosef& pose) {
    const XrTime time = context.CurrentLocateTime();
    if (base_space == context.stageSpace || context.stageSpace == XR_NULL_HANDLE || time == 0) return pose;
    const auto in_stage = PoseInSpace(LocateInRuntime, base_space, context.stageSpace, time, pose);
    if (!in_stage) LogWarning("RecordSimulatedControllerPose: could not transform pose to STAGE space; storing as-is");
    return in_stage.value_or(pose);
}

void RecordSimulatedControllerPose(const std::string& top_level_path, const std::string& input_source_path,
                                   XrSpace base_space, const XrPosef& pose) {
    ContextManager& manager = ContextManager::instance();
    const SessionState state = manager.getSessionState();
    if (!state.valid || state.session == XR_NULL_HANDLE) return;
    const std::shared_ptr<SessionContext> context = manager.getSessionContext(state.session);
    if (!context || context->session == XR_NULL_HANDLE) return;
    const int hand = top_level_path == kLeftHandPath ? kLeftHand : kRightHand;
    const int kind = input_source_path.find("/aim/") != std::string::npos ? kAimKind : kGripKind;
    context->SetSimulatedControllerPose(hand, kind, InStageSpace(*context, base_space, pose));
}

}  // namespace

bool conformance_automation_enabled() {
    return ContextManager::instance().isExtensionEnabled(XR_EXT_CONFORMANCE_AUTOMATION_EXTENSION_NAME);
}

OperationResult EnsureConformanceAutomationActive(SessionContext& context) {
    if (context.conformance_automation_active) return Succeeded();
    OperationResult activated = ActivateConformanceAutomation(context);
    if (activated.ok) context.conformance_automation_active = true;
    return activated;
}

OperationResult ActivateConformanceAutomation(SessionContext& context) {
    LogInfo("Activating conformance automation with pose snapshot/restore for all devices");
    const Activation activation = BeginActivation();
    const XrSpace base = context.stageSpace;
    const Snapshot snapshot = TakeSnapshot(context, base, context.CurrentLocateTime());
    OperationResult activated = ActivateDevices(activation);
    if (!activated.ok) return activated;
    LogInfo("Conformance automation activated. Restoring snapshotted poses for all devices.");
    RestoreHead(snapshot, base);
    RestoreControllers(snapshot, base);
    LogInfo("Conformance automation fully activated. Physical device tracking is now disabled.");
    return Succeeded();
}

XrResult LocateInRuntime(XrSpace space, XrSpace base_space, XrTime time, XrSpaceLocation* location) {
    return DispatchHolder::instance().Call(&NextDispatchTable::LocateSpace, space, base_space, time, location);
}

bool QueryDevicePose(XrSpace space, XrSpace base_space, XrTime time, const std::string& label, XrPosef& pose) {
    const auto cannot = [&](const auto&... reason) {
        LogWarning("Cannot query ", label, " pose: ", reason...);
        return false;
    };
    if (space == XR_NULL_HANDLE || base_space == XR_NULL_HANDLE) return cannot("space handle is null");
    if (time == 0) return cannot("no frame timing data");
    XrSpaceLocation location{XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
    const XrResult result = LocateInRuntime(space, base_space, time, &location);
    if (XR_FAILED(result)) return cannot("xrLocateSpace failed with error code ", static_cast<int>(result));
    if (!HasValidPose(location.locationFlags)) {
        const bool position_valid = (location.locationFlags & XR_SPACE_LOCATION_POSITION_VALID_BIT) != 0;
        const bool orientation_valid = (location.locationFlags & XR_SPACE_LOCATION_ORIENTATION_VALID_BIT) != 0;
        return cannot("invalid location flags (position_valid=", int{position_valid},
                      ", orientation_valid=", int{orientation_valid}, ")");
    }
    pose = location.pose;
    LogInfo("Successfully queried ", label, " pose");
    return true;
}

OperationResult SetDeviceLocation(const std::string& top_level_path, const std::string& input_source_path,
                                  XrSpace base_space, const XrPosef& pose) {
    ContextManager& manager = ContextManager::instance();
    const XrSession session = manager.getSessionState().session;
    const XrInstance instance = manager.getInstanceHandle();
    const auto set_location =
        DispatchHolder::instance().Resolve<PFN_xrSetInputDeviceLocationEXT>("xrSetInputDeviceLocationEXT");
    const XrPath device = PathFromText(instance, top_level_path);
    const XrPath source = PathFromText(instance, input_source_path);
    const XrResult result =
        set_location ? set_location(session, device, source, base_space, pose) : XR_ERROR_FUNCTION_UNSUPPORTED;
    // On purpose before the result is looked at: the mirror shows what the agent asked for, refused or not.
    if (top_level_path == kLeftHandPath || top_level_path == kRightHandPath) {
        RecordSimulatedControllerPose(top_level_path, input_source_path, base_space, pose);
    }
    if (XR_FAILED(result)) {
        return Failed("xrSetInputDeviceLocationEXT failed for " + top_level_path +
                      " with error code: " + std::to_string(static_cast<int>(result)));
    }
    LogInfo("Successfully set device location for ", top_level_path);
    return Succeeded();
}

}  // namespace orvanic_xr
