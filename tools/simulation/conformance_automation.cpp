#include "tools/simulation/conformance_automation.h"

#include <atomic>
#include <functional>

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

// Whoever activates, for as long as that takes; the next one waits.
class ActivationTurn {
 public:
    explicit ActivationTurn(std::atomic_flag& taken) : taken_(taken) {
        while (taken_.test_and_set()) taken_.wait(true);
    }
    ~ActivationTurn() {
        taken_.clear();
        taken_.notify_one();
    }
    ActivationTurn(const ActivationTurn&) = delete;
    ActivationTurn& operator=(const ActivationTurn&) = delete;

 private:
    std::atomic_flag& taken_;
};

XrPath PathOf(const SessionContext& context, const std::string& text) {
    const auto pass = context.EnterRuntime();
    return pass ? PathFromText(context.instance(), text) : XR_NULL_PATH;
}

// A function that is looked up afresh at every use; null where it is not to be had.
template <typename Function>
Function Resolve(const SessionContext& context, const char* name) {
    const auto pass = context.EnterRuntime();
    return pass ? DispatchHolder::instance().Resolve<Function>(name) : nullptr;
}

// Calls such a function. One that is missing answers as a runtime would that doesn't know it.
template <typename Function, typename... Arguments>
XrResult CallResolved(const SessionContext& context, Function function, Arguments... arguments) {
    const auto pass = context.EnterRuntime();
    if (!pass) return XR_ERROR_HANDLE_INVALID;
    return function ? function(context.session, arguments...) : XR_ERROR_FUNCTION_UNSUPPORTED;
}

OperationResult ActivateDevice(const SessionContext& context, PFN_xrSetInputDeviceActiveEXT set_active, XrPath profile,
                               const char* top_level_path) {
    const XrPath device = PathOf(context, top_level_path);
    const XrResult result = CallResolved(context, set_active, profile, device, XrBool32{XR_TRUE});
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
OperationResult ActivateDevices(const SessionContext& context, PFN_xrSetInputDeviceActiveEXT set_active) {
    const XrPath head_profile = PathOf(context, kHeadProfile);
    OperationResult head = ActivateDevice(context, set_active, head_profile, kHeadTopLevelPath);
    if (!head.ok) return head;
    const XrPath controller_profile = PathOf(context, kControllerProfile);
    OperationResult left = ActivateDevice(context, set_active, controller_profile, kLeftHandPath);
    if (!left.ok) return left;
    return ActivateDevice(context, set_active, controller_profile, kRightHandPath);
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
    snapshot.head_located = QueryDevicePose(context, context.viewSpace, base, time, "head", snapshot.head);
    snapshot.left_located =
        QueryDevicePose(context, context.leftAimSpace, base, time, "left controller", snapshot.left);
    snapshot.right_located =
        QueryDevicePose(context, context.rightAimSpace, base, time, "right controller", snapshot.right);
    return snapshot;
}

void RestoreHead(SessionContext& context, const Snapshot& snapshot, XrSpace base) {
    if (!snapshot.head_located) {
        LogWarning("Skipping head pose restore: pose was not available before activation");
        return;
    }
    const OperationResult restored = SetDeviceLocation(context, kHeadTopLevelPath, kHeadPosePath, base, snapshot.head);
    if (!restored.ok) LogWarning("Failed to restore head pose after activation: ", restored.error);
}

void WriteFirstPose(SessionContext& context, const char* hand_path, const char* input, XrSpace base,
                    const XrPosef& pose, const char* failure) {
    const OperationResult written = SetDeviceLocation(context, hand_path, std::string(hand_path) + input, base, pose);
    if (!written.ok) LogWarning(failure, written.error);
}

void RestoreControllers(SessionContext& context, const Snapshot& snapshot, XrSpace base) {
    if (!snapshot.left_located) {
        LogInfo(
            "Left controller pose was not available before activation; applying default resting pose so mock device "
            "has a valid initial pose");
    }
    const XrPosef left = snapshot.left_located ? snapshot.left : kLeftRestingPose;
    WriteFirstPose(context, kLeftHandPath, "/input/aim/pose", base, left,
                   "Failed to set left controller pose after activation: ");
    if (!snapshot.right_located) {
        LogInfo(
            "Right controller pose was not available before activation; applying default resting pose so mock device "
            "has a valid initial pose");
    }
    const XrPosef right = snapshot.right_located ? snapshot.right : kRightRestingPose;
    WriteFirstPose(context, kRightHandPath, "/input/aim/pose", base, right,
                   "Failed to set right controller pose after activation: ");
    // On purpose: the grip inputs start with the aim poses, so that both mirrors begin equal.
    WriteFirstPose(context, kLeftHandPath, "/input/grip/pose", base, left,
                   "Failed to set left controller grip pose after activation: ");
    WriteFirstPose(context, kRightHandPath, "/input/grip/pose", base, right,
                   "Failed to set right controller grip pose after activation: ");
}

// `pose`, given in `base_space`, in the STAGE space of `context`, or as it is where that can't be told.
XrPosef InStageSpace(const SessionContext& context, XrSpace base_space, const XrPosef& pose) {
    const XrTime time = context.CurrentLocateTime();
    if (base_space == context.stageSpace || context.stageSpace == XR_NULL_HANDLE || time == 0) return pose;
    const auto in_stage =
        PoseInSpace(std::bind_front(&SessionContext::Locate, &context), base_space, context.stageSpace, time, pose);
    if (!in_stage) LogWarning("RecordSimulatedControllerPose: could not transform pose to STAGE space; storing as-is");
    return in_stage.value_or(pose);
}

void RecordSimulatedControllerPose(SessionContext& context, const std::string& top_level_path,
                                   const std::string& input_source_path, XrSpace base_space, const XrPosef& pose) {
    if (context.ended()) return;
    const int hand = top_level_path == kLeftHandPath ? kLeftHand : kRightHand;
    const int kind = input_source_path.find("/aim/") != std::string::npos ? kAimKind : kGripKind;
    context.SetSimulatedControllerPose(hand, kind, InStageSpace(context, base_space, pose));
}

}  // namespace

bool conformance_automation_enabled() {
    return ContextManager::instance().isExtensionEnabled(XR_EXT_CONFORMANCE_AUTOMATION_EXTENSION_NAME);
}

OperationResult EnsureConformanceAutomationActive(SessionContext& context) {
    if (context.conformance_automation_active) return Succeeded();
    const ActivationTurn turn(context.automation_activating);
    if (context.conformance_automation_active) return Succeeded();
    OperationResult activated = ActivateConformanceAutomation(context);
    if (activated.ok) context.conformance_automation_active = true;
    return activated;
}

OperationResult ActivateConformanceAutomation(SessionContext& context) {
    LogInfo("Activating conformance automation with pose snapshot/restore for all devices");
    const auto set_active = Resolve<PFN_xrSetInputDeviceActiveEXT>(context, "xrSetInputDeviceActiveEXT");
    const XrSpace base = context.stageSpace;
    const Snapshot snapshot = TakeSnapshot(context, base, context.CurrentLocateTime());
    OperationResult activated = ActivateDevices(context, set_active);
    if (!activated.ok) return activated;
    LogInfo("Conformance automation activated. Restoring snapshotted poses for all devices.");
    RestoreHead(context, snapshot, base);
    RestoreControllers(context, snapshot, base);
    LogInfo("Conformance automation fully activated. Physical device tracking is now disabled.");
    return Succeeded();
}

bool QueryDevicePose(const SessionContext& context, XrSpace space, XrSpace base_space, XrTime time,
                     const std::string& label, XrPosef& pose) {
    const auto cannot = [&](const auto&... reason) {
        LogWarning("Cannot query ", label, " pose: ", reason...);
        return false;
    };
    if (space == XR_NULL_HANDLE || base_space == XR_NULL_HANDLE) return cannot("space handle is null");
    if (time == 0) return cannot("no frame timing data");
    XrSpaceLocation location{XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
    const XrResult result = context.Locate(space, base_space, time, &location);
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

OperationResult SetDeviceLocation(SessionContext& context, const std::string& top_level_path,
                                  const std::string& input_source_path, XrSpace base_space, const XrPosef& pose) {
    const auto set_location = Resolve<PFN_xrSetInputDeviceLocationEXT>(context, "xrSetInputDeviceLocationEXT");
    const XrPath device = PathOf(context, top_level_path);
    const XrPath source = PathOf(context, input_source_path);
    const XrResult result = CallResolved(context, set_location, device, source, base_space, pose);
    // On purpose before the result is looked at: the mirror shows what the agent asked for, refused or not.
    if (top_level_path == kLeftHandPath || top_level_path == kRightHandPath) {
        RecordSimulatedControllerPose(context, top_level_path, input_source_path, base_space, pose);
    }
    if (XR_FAILED(result)) {
        return Failed("xrSetInputDeviceLocationEXT failed for " + top_level_path +
                      " with error code: " + std::to_string(static_cast<int>(result)));
    }
    LogInfo("Successfully set device location for ", top_level_path);
    return Succeeded();
}

}  // namespace orvanic_xr
