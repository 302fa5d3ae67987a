#include "layer/space_hooks.h"

#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "diagnostics/number_text.h"
#include "diagnostics/verbose.h"
#include "layer/action_maps.h"
#include "layer/dispatch/paths.h"
#include "layer/hook_support.h"
#include "xr/location.h"
#include "xr/pose_math.h"

namespace orvanic_xr {
namespace {

std::int32_t HandOfPath(const std::string& path) {
    if (path == "/user/hand/left") return kLeftHand;
    if (path == "/user/hand/right") return kRightHand;
    return kUnknownHand;
}

void NoteActionSpace(const XrActionSpaceCreateInfo& info, XrSpace space) {
    std::int32_t hand = kUnknownHand;
    std::string path = "<null>";
    if (info.subactionPath != XR_NULL_PATH) {
        path = TextFromPath(ContextManager::instance().getInstanceHandle(), info.subactionPath);
        hand = HandOfPath(path);
    }
    LogDebug("[inputdiag] CreateActionSpace space=", space, " action=", info.action, " subactionPath=", path,
             " hand=", hand);
    const XrPosef& offset = info.poseInActionSpace;
    const bool has_offset = !SamePose(offset, kIdentityPose);
    ActionMaps::instance().AddSpace(space, {info.action, hand, has_offset}, offset);
}

// The application's action space, with the debug line at its first locate.
std::optional<ActionMaps::FoundSpace> FindActionSpace(XrSpace space) {
    const auto found = ActionMaps::instance().FindSpace(space, VerboseLogging());
    if (found && found->first_time) {
        LogDebug("[inputdiag] LocateSpace app pose space=", space, " action=", found->action, " hand=", found->hand,
                 " grip=", found->isGrip);
    }
    return found;
}

bool IsAutomated(const SessionContext& context) {
    return context.session && context.conformance_automation_active;
}

// The hand's pose in STAGE space: of the action's own kind, or of the other if only that was recorded.
std::optional<XrPosef> SimulatedPose(const SessionContext& context, const ActionMaps::FoundSpace& space) {
    const int kind = space.isGrip ? kGripKind : kAimKind;
    const int other_kind = space.isGrip ? kAimKind : kGripKind;
    for (const int column : {kind, other_kind}) {
        const SimulatedPoseSlot slot = context.GetSimulatedControllerPose(space.hand, column);
        if (slot.valid) return slot.pose;
    }
    return std::nullopt;
}

// The simulated pose of the application's action space in `base_space`; nothing where the simulation has no say.
std::optional<XrPosef> LocateSimulated(PFN_xrLocateSpace locate_space, const ActionMaps::FoundSpace& space,
                                       XrSpace base_space, XrTime time) {
    if (space.hand != kLeftHand && space.hand != kRightHand) return std::nullopt;
    const XrSession session = ContextManager::instance().getSessionState().session;
    if (!session) return std::nullopt;
    const auto context = ContextManager::instance().getSessionContext(session);
    if (!context || !IsAutomated(*context)) return std::nullopt;
    const std::optional<XrPosef> pose = SimulatedPose(*context, space);
    if (!pose || !context->stageSpace) return std::nullopt;
    return PoseInSpace(locate_space, context->stageSpace, base_space, time, *pose);
}

// Apart from the hook, whose own composition is inlined only where there is no second call.
[[gnu::noinline, gnu::flatten]] void AddOffset(XrSpace space, XrPosef& pose) {
    pose = Compose(pose, ActionMaps::instance().OffsetOf(space));
}

XrResult LocateSpace(XrSpace space, XrSpace base_space, XrTime time, XrSpaceLocation* location) {
    const auto locate_space = NextFunction(&NextDispatchTable::LocateSpace, "xrLocateSpace");
    if (!locate_space) return XR_ERROR_RUNTIME_FAILURE;
    const auto action_space = FindActionSpace(space);
    if (location && action_space) {
        if (const auto pose = LocateSimulated(locate_space, *action_space, base_space, time)) {
            // On purpose the runtime is not asked about the space, and a `next` chain is left as it is.
            location->pose = *pose;
            if (action_space->has_offset) [[unlikely]]
                AddOffset(space, location->pose);
            location->locationFlags = kPoseValidAndTracked;
            return XR_SUCCESS;
        }
    }
    return locate_space(space, base_space, time, location);
}

XrResult GetActionStatePose(XrSession session, const XrActionStateGetInfo* info, XrActionStatePose* state) {
    const auto get_state = NextFunction(&NextDispatchTable::GetActionStatePose, "xrGetActionStatePose");
    if (!get_state) return XR_ERROR_RUNTIME_FAILURE;
    const XrResult result = get_state(session, info, state);
    if (!info || !state || XR_FAILED(result) || state->isActive) return result;
    if (!ActionMaps::instance().HadSpaceOf(info->action)) return result;
    const auto context = ContextManager::instance().getSessionContext(session);
    if (context && IsAutomated(*context)) state->isActive = XR_TRUE;
    return result;
}

// The last logged state of each action.
template <typename State>
class LastStates {
 public:
    static LastStates& instance() {
        static LastStates& states = *new LastStates;
        return states;
    }

    // Keeps the state of `action`; false if it is the one that was kept before.
    bool Update(XrAction action, const State& state) {
        std::lock_guard lock(mutex_);
        const auto [entry, is_new] = states_.try_emplace(action, Last{state.currentState, state.isActive});
        Last& last = entry->second;
        if (!is_new && last.currentState == state.currentState && last.isActive == state.isActive) return false;
        last = {state.currentState, state.isActive};
        return true;
    }

 private:
    struct Last {
        decltype(State::currentState) currentState;
        XrBool32 isActive;
    };
    std::mutex mutex_;  // states_
    std::unordered_map<XrAction, Last> states_;
};

// Without the two error lines of the other hooks: the application asks for every action in every frame.
template <typename State, typename Function>
XrResult GetActionState(Function NextDispatchTable::*slot, XrSession session, const XrActionStateGetInfo* info,
                        State* state, void (*log)(XrAction, const State&)) {
    const Function get_state = DispatchHolder::instance().Slot(slot);
    if (!get_state) return XR_ERROR_RUNTIME_FAILURE;
    const XrResult result = get_state(session, info, state);
    if (!info || !state || XR_FAILED(result)) return result;
    if (LastStates<State>::instance().Update(info->action, *state)) log(info->action, *state);
    return result;
}

void LogFloat(XrAction action, const XrActionStateFloat& state) {
    LogDebug("[inputdiag] float action=", action, " cur=", FixedText(static_cast<double>(state.currentState)),
             " active=", state.isActive, " changed=", state.changedSinceLastSync);
}

void LogBoolean(XrAction action, const XrActionStateBoolean& state) {
    LogDebug("[inputdiag] bool action=", action, " cur=", state.currentState, " active=", state.isActive,
             " changed=", state.changedSinceLastSync);
}

}  // namespace

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrCreateActionSpace(XrSession session,
                                                               const XrActionSpaceCreateInfo* createInfo,
                                                               XrSpace* space) {
    return GuardHook(WithoutTelemetry("OrvanicLayerXrCreateActionSpace"), [&] {
        const auto create = NextFunction(&NextDispatchTable::CreateActionSpace, "xrCreateActionSpace");
        if (!create) return XR_ERROR_RUNTIME_FAILURE;
        const XrResult result = create(session, createInfo, space);
        if (createInfo && space && XR_SUCCEEDED(result)) NoteActionSpace(*createInfo, *space);
        return result;
    });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrLocateSpace(XrSpace space, XrSpace baseSpace, XrTime time,
                                                         XrSpaceLocation* location) {
    return GuardHook(WithoutTelemetry("OrvanicLayerXrLocateSpace"),
                     [&] { return LocateSpace(space, baseSpace, time, location); });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrGetActionStatePose(XrSession session, const XrActionStateGetInfo* getInfo,
                                                                XrActionStatePose* state) {
    return GuardHook(WithoutTelemetry("OrvanicLayerXrGetActionStatePose"),
                     [&] { return GetActionStatePose(session, getInfo, state); });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrGetActionStateFloat(XrSession session, const XrActionStateGetInfo* getInfo,
                                                                 XrActionStateFloat* state) {
    return GuardHook(WithoutTelemetry("OrvanicLayerXrGetActionStateFloat"), [&] {
        return GetActionState(&NextDispatchTable::GetActionStateFloat, session, getInfo, state, LogFloat);
    });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrGetActionStateBoolean(XrSession session,
                                                                   const XrActionStateGetInfo* getInfo,
                                                                   XrActionStateBoolean* state) {
    return GuardHook(WithoutTelemetry("OrvanicLayerXrGetActionStateBoolean"), [&] {
        return GetActionState(&NextDispatchTable::GetActionStateBoolean, session, getInfo, state, LogBoolean);
    });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrDestroySpace(XrSpace space) {
    return GuardHook(WithoutTelemetry("OrvanicLayerXrDestroySpace"), [&] {
        ActionMaps::instance().ForgetSpace(space);
        const auto destroy = NextFunction(&NextDispatchTable::DestroySpace, "xrDestroySpace");
        return destroy ? destroy(space) : XR_ERROR_RUNTIME_FAILURE;
    });
}

}  // namespace orvanic_xr
