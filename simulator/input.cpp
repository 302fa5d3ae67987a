#include "simulator/input.h"

#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/session.h"

namespace simulator {
namespace {

constexpr TopLevels kEverywhere = 0xFF;

ActiveSets CheckedActiveSets(const Runtime& runtime, const Session& session, const XrActionsSyncInfo& info) {
    Require(info.countActiveActionSets == 0 || info.activeActionSets);
    ActiveSets active;
    for (std::uint32_t i = 0; i < info.countActiveActionSets; ++i) {
        const XrActiveActionSet& entry = info.activeActionSets[i];
        const auto set = runtime.Get(entry.actionSet);
        if (!session.input.IsAttached(*set)) Refuse(XR_ERROR_ACTIONSET_NOT_ATTACHED);
        TopLevels tops = kEverywhere;
        if (entry.subactionPath != XR_NULL_PATH) {
            const auto split = SplitTopLevel(session.instance->PathText(entry.subactionPath));
            if (!split || !split->rest.empty() || !(set->subactions & BitOf(split->top))) {
                Refuse(XR_ERROR_PATH_UNSUPPORTED);
            }
            tops = BitOf(split->top);
        }
        active[set.get()] = static_cast<TopLevels>(active[set.get()] | tops);
    }
    return active;
}

// The checks that all getters share, and the state that is asked for.
SubactionState StateOf(const Runtime& runtime, const Session& session, const XrActionStateGetInfo* info,
                       XrActionType type) {
    RequireType(info, XR_TYPE_ACTION_STATE_GET_INFO);
    const auto action = runtime.Get(info->action);
    if (!session.input.IsAttached(*action->set)) Refuse(XR_ERROR_ACTIONSET_NOT_ATTACHED);
    if (action->type != type) Refuse(XR_ERROR_ACTION_TYPE_MISMATCH);
    const auto top = action->CheckedSubaction(*session.instance, info->subactionPath);
    return session.input.StateOf(*action, top);
}

template <class State>
void WriteMarks(const SubactionState& from, State& state) {
    state.changedSinceLastSync = from.changed;
    state.lastChangeTime = from.last_change;
    state.isActive = from.active;
}

XrResult CheckHaptics(const Runtime& runtime, XrSession session, const XrHapticActionInfo* info) {
    const auto owner = runtime.Get(session);
    RequireType(info, XR_TYPE_HAPTIC_ACTION_INFO);
    const auto action = runtime.Get(info->action);
    if (!owner->input.IsAttached(*action->set)) Refuse(XR_ERROR_ACTIONSET_NOT_ATTACHED);
    if (action->type != XR_ACTION_TYPE_VIBRATION_OUTPUT) Refuse(XR_ERROR_ACTION_TYPE_MISMATCH);
    action->CheckedSubaction(*owner->instance, info->subactionPath);
    return owner->state == XR_SESSION_STATE_FOCUSED ? XR_SUCCESS : XR_SESSION_NOT_FOCUSED;
}

}  // namespace

XrResult SyncActions(XrSession session, const XrActionsSyncInfo* info) {
    return Guarded([&](Runtime& runtime) {
        Session& owner = *runtime.Get(session);
        RequireType(info, XR_TYPE_ACTIONS_SYNC_INFO);
        ++owner.frames.calls.syncs;
        const ActiveSets active = CheckedActiveSets(runtime, owner, *info);
        if (owner.state != XR_SESSION_STATE_FOCUSED) {
            owner.input.states.clear();
            return XR_SESSION_NOT_FOCUSED;
        }
        if (owner.input.SelectProfiles(owner.devices)) {
            owner.instance->events.Push(
                XrEventDataInteractionProfileChanged{XR_TYPE_EVENT_DATA_INTERACTION_PROFILE_CHANGED, nullptr, session});
        }
        owner.input.Sync(owner.devices, active, Now());
        return XR_SUCCESS;
    });
}

XrResult GetActionStateBoolean(XrSession session, const XrActionStateGetInfo* info, XrActionStateBoolean* state) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(state, XR_TYPE_ACTION_STATE_BOOLEAN);
        const SubactionState found = StateOf(runtime, *owner, info, XR_ACTION_TYPE_BOOLEAN_INPUT);
        state->currentState = found.value.x != 0.0f;
        WriteMarks(found, *state);
        return XR_SUCCESS;
    });
}

XrResult GetActionStateFloat(XrSession session, const XrActionStateGetInfo* info, XrActionStateFloat* state) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(state, XR_TYPE_ACTION_STATE_FLOAT);
        const SubactionState found = StateOf(runtime, *owner, info, XR_ACTION_TYPE_FLOAT_INPUT);
        state->currentState = found.value.x;
        WriteMarks(found, *state);
        return XR_SUCCESS;
    });
}

XrResult GetActionStateVector2f(XrSession session, const XrActionStateGetInfo* info, XrActionStateVector2f* state) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(state, XR_TYPE_ACTION_STATE_VECTOR2F);
        const SubactionState found = StateOf(runtime, *owner, info, XR_ACTION_TYPE_VECTOR2F_INPUT);
        state->currentState = found.value;
        WriteMarks(found, *state);
        return XR_SUCCESS;
    });
}

XrResult GetActionStatePose(XrSession session, const XrActionStateGetInfo* info, XrActionStatePose* state) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(state, XR_TYPE_ACTION_STATE_POSE);
        state->isActive = StateOf(runtime, *owner, info, XR_ACTION_TYPE_POSE_INPUT).active;
        return XR_SUCCESS;
    });
}

XrResult ApplyHapticFeedback(XrSession session, const XrHapticActionInfo* info, const XrHapticBaseHeader* feedback) {
    return Guarded([&](Runtime& runtime) {
        const XrResult result = CheckHaptics(runtime, session, info);
        RequireType(feedback, XR_TYPE_HAPTIC_VIBRATION);
        const auto& vibration = *reinterpret_cast<const XrHapticVibration*>(feedback);
        Require(vibration.amplitude >= 0.0f && vibration.amplitude <= 1.0f);
        return result;
    });
}

XrResult StopHapticFeedback(XrSession session, const XrHapticActionInfo* info) {
    return Guarded([&](Runtime& runtime) { return CheckHaptics(runtime, session, info); });
}

}  // namespace simulator
