#include "context/session_context.h"

#include <limits>
#include <string>
#include <utility>

#include "context/context_manager.h"
#include "diagnostics/logger.h"
#include "layer/dispatch/dispatch.h"
#include "layer/dispatch/paths.h"
#include "xr/pose_math.h"

namespace orvanic_xr {
namespace {

struct ReferenceSpaceRow {
    XrReferenceSpaceType type;
    const char* name;
    XrSpace SessionContext::*space;
};

constexpr ReferenceSpaceRow kReferenceSpaces[] = {
    {XR_REFERENCE_SPACE_TYPE_VIEW, "XR_REFERENCE_SPACE_TYPE_VIEW", &SessionContext::viewSpace},
    {XR_REFERENCE_SPACE_TYPE_LOCAL, "XR_REFERENCE_SPACE_TYPE_LOCAL", &SessionContext::localSpace},
    {XR_REFERENCE_SPACE_TYPE_STAGE, "XR_REFERENCE_SPACE_TYPE_STAGE", &SessionContext::stageSpace},
    {XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR, "XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR", &SessionContext::localFloorSpace},
};

struct ActionRow {
    const char* name;
    const char* localized_name;
    XrAction SessionContext::*action;
    XrSpace SessionContext::*space;
};

constexpr ActionRow kActions[] = {
    {"orvanic_xr_left_hand_grip_pose", "Grip pose of left hand", &SessionContext::leftGripAction,
     &SessionContext::leftGripSpace},
    {"orvanic_xr_right_hand_grip_pose", "Grip pose of right hand", &SessionContext::rightGripAction,
     &SessionContext::rightGripSpace},
    {"orvanic_xr_left_hand_aim_pose", "Aim pose of left hand", &SessionContext::leftAimAction,
     &SessionContext::leftAimSpace},
    {"orvanic_xr_right_hand_aim_pose", "Aim pose of right hand", &SessionContext::rightAimAction,
     &SessionContext::rightAimSpace},
};

// Another order than that of the actions.
struct BindingRow {
    XrAction SessionContext::*action;
    const char* path;
};

constexpr BindingRow kBindings[] = {
    {&SessionContext::leftGripAction, "/user/hand/left/input/grip/pose"},
    {&SessionContext::leftAimAction, "/user/hand/left/input/aim/pose"},
    {&SessionContext::rightGripAction, "/user/hand/right/input/grip/pose"},
    {&SessionContext::rightAimAction, "/user/hand/right/input/aim/pose"},
};

template <typename Function>
Function Next(Function NextDispatchTable::*slot) {
    return DispatchHolder::instance().Slot(slot);
}

// Calls a function that makes a handle. Null on failure, whatever the runtime left in it, and if the next layer
// lacks the function.
template <typename Handle, typename Function, typename... Arguments>
Handle Make(Function make, Arguments... arguments) {
    Handle handle = XR_NULL_HANDLE;
    if (!make || XR_FAILED(make(arguments..., &handle))) return XR_NULL_HANDLE;
    return handle;
}

// Destructors end here: the result is nobody's business, and neither is what the runtime throws.
template <typename Handle, typename Function>
void Destroy(Function destroy, Handle handle) {
    if (!destroy || handle == XR_NULL_HANDLE) return;
    try {
        destroy(handle);
    } catch (...) {
    }
}

// `name` has its place in the fixed-size text with room to spare.
template <std::size_t kSize>
void CopyText(const std::string& name, char (&text)[kSize]) {
    name.copy(text, kSize - 1);
}

XrAction MakeAction(PFN_xrCreateAction create_action, XrActionSet set, const ActionRow& row) {
    XrActionCreateInfo info{};
    info.type = XR_TYPE_ACTION_CREATE_INFO;
    info.actionType = XR_ACTION_TYPE_POSE_INPUT;
    CopyText(row.name, info.actionName);
    CopyText(row.localized_name, info.localizedActionName);
    return Make<XrAction>(create_action, set, &info);
}

}  // namespace

// Delegates, so that what was made before the runtime throws is destroyed.
SessionContext::SessionContext(XrSession xr_session) : SessionContext() {
    if (xr_session == XR_NULL_HANDLE) {
        Close();
        return;
    }
    session = xr_session;
    instance_ = ContextManager::instance().getInstanceHandle();
    CreateReferenceSpaces();
    CreateActionsAndSpaces();
}

SessionContext::~SessionContext() {
    // One that nobody ended was never shared, or its session outlives what kept it.
    if (!ended()) DestroyHandles();
}

void SessionContext::End() {
    Close();
    DestroyHandles();
}

void SessionContext::AdoptSpace(XrSpace space) {
    std::lock_guard lock(adopted_spaces_mutex_);
    adopted_spaces_.push_back(space);
}

void SessionContext::CreateReferenceSpaces() {
    const auto create_space = Next(&NextDispatchTable::CreateReferenceSpace);
    XrReferenceSpaceCreateInfo info{};
    info.type = XR_TYPE_REFERENCE_SPACE_CREATE_INFO;
    info.poseInReferenceSpace = kIdentityPose;
    for (const ReferenceSpaceRow& row : kReferenceSpaces) {
        info.referenceSpaceType = row.type;
        this->*row.space = Make<XrSpace>(create_space, session, &info);
        if (this->*row.space != XR_NULL_HANDLE) {
            LogInfo("Reference space created: ", row.name);
        } else {
            LogWarning("failed to create reference space: ", row.name);
        }
    }
}

void SessionContext::CreateActionsAndSpaces() {
    const auto create_action_set = Next(&NextDispatchTable::CreateActionSet);
    const auto create_action = Next(&NextDispatchTable::CreateAction);
    // The next layer's own, so that these spaces do not pass the layer's hook.
    const auto create_action_space = Next(&NextDispatchTable::CreateActionSpace);

    XrActionSetCreateInfo set_info{};
    set_info.type = XR_TYPE_ACTION_SET_CREATE_INFO;
    CopyText("orvanic_xr_action_set", set_info.actionSetName);
    CopyText("Action set for Orvanic XR", set_info.localizedActionSetName);
    actionSet = Make<XrActionSet>(create_action_set, instance_, &set_info);
    if (actionSet == XR_NULL_HANDLE) {
        LogError("Failed to create action set");
        return;
    }

    XrActionSpaceCreateInfo space_info{};
    space_info.type = XR_TYPE_ACTION_SPACE_CREATE_INFO;
    space_info.poseInActionSpace = kIdentityPose;
    for (const ActionRow& row : kActions) {
        this->*row.action = MakeAction(create_action, actionSet, row);
        if (this->*row.action == XR_NULL_HANDLE) {
            LogWarning("Failed to create action for: ", row.name);
            continue;
        }
        LogInfo("Created action for: ", row.name);
        space_info.action = this->*row.action;
        this->*row.space = Make<XrSpace>(create_action_space, session, &space_info);
        if (this->*row.space == XR_NULL_HANDLE) {
            LogWarning("Failed to create action space for: ", row.name);
        } else {
            LogInfo("Created action space for: ", row.name);
        }
    }
}

// Nobody is inside the fence any more, so the handles stay in their fields: who looks there finds what is of no use.
void SessionContext::DestroyHandles() const {
    const auto destroy_space = Next(&NextDispatchTable::DestroySpace);
    for (const XrSpace space : adopted_spaces_) Destroy(destroy_space, space);
    for (const ReferenceSpaceRow& row : kReferenceSpaces) Destroy(destroy_space, this->*row.space);
    if (actionSet == XR_NULL_HANDLE) return;
    for (const ActionRow& row : kActions) Destroy(destroy_space, this->*row.space);
    Destroy(Next(&NextDispatchTable::DestroyActionSet), actionSet);  // its actions go with it
}

void SessionContext::RecordFrameTime(XrTime time) {
    std::lock_guard lock(frameTimeMutex);
    pendingDisplayTimes.push_back(time);
    lastDisplayTime = time;
    // Of the last completed frame, so one frame behind.
    if (const auto period = ContextManager::instance().lastFramePeriod()) displayPeriod = *period;
}

void SessionContext::ConsumeFrameTime() {
    std::lock_guard lock(frameTimeMutex);
    if (!pendingDisplayTimes.empty()) pendingDisplayTimes.pop_front();
}

void SessionContext::DropFrameTime(XrTime time) {
    std::lock_guard lock(frameTimeMutex);
    for (std::size_t i = 0; i < pendingDisplayTimes.size(); ++i) {
        if (pendingDisplayTimes[i] != time) continue;
        pendingDisplayTimes.erase(i);
        return;
    }
}

XrTime SessionContext::CurrentLocateTime() const {
    std::lock_guard lock(frameTimeMutex);
    if (!pendingDisplayTimes.empty()) return pendingDisplayTimes.front();
    if (lastDisplayTime == 0 || displayPeriod == 0) return 0;
    XrTime next_time = 0;
    if (__builtin_add_overflow(lastDisplayTime, displayPeriod, &next_time)) return std::numeric_limits<XrTime>::max();
    return next_time;
}

void SessionContext::SetSimulatedControllerPose(int hand, int kind, const XrPosef& pose) {
    std::lock_guard lock(simulatedPoseMutex);
    simulatedPoses.at(static_cast<std::size_t>(hand)).at(static_cast<std::size_t>(kind)) = {pose, true};
}

SimulatedPoseSlot SessionContext::GetSimulatedControllerPose(int hand, int kind) const {
    std::lock_guard lock(simulatedPoseMutex);
    return simulatedPoses.at(static_cast<std::size_t>(hand)).at(static_cast<std::size_t>(kind));
}

std::vector<XrActionSuggestedBinding> SessionContext::SuggestedBindings() const {
    std::vector<XrActionSuggestedBinding> bindings;
    for (const BindingRow& row : kBindings) {
        XrPath path = XR_NULL_PATH;
        if (XR_FAILED(StringToPath(instance_, row.path, path))) {
            LogError("Failed to get path for: ", row.path);
            continue;
        }
        bindings.push_back({this->*row.action, path});
    }
    return bindings;
}

}  // namespace orvanic_xr
