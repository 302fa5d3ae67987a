#include "simulator/input.h"

#include <algorithm>
#include <cmath>

#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/session.h"

namespace simulator {
namespace {

constexpr TopLevels kEverywhere = 0xFF;

// The sets of one sync, and on which top level paths each is active.
using ActiveSets = std::unordered_map<const ActionSet*, TopLevels>;

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

bool IsActive(const ActiveSets& active, const Binding& binding) {
    const auto found = active.find(binding.action->set.get());
    return found != active.end() && (found->second & BitOf(binding.top));
}

// A source that sets of several priorities are bound to feeds the highest of them alone.
std::map<std::pair<TopLevel, std::size_t>, std::uint32_t> PrioritiesOf(const std::vector<Binding>& bindings,
                                                                       const ActiveSets& active) {
    std::map<std::pair<TopLevel, std::size_t>, std::uint32_t> priorities;
    for (const Binding& binding : bindings) {
        if (!IsActive(active, binding)) continue;
        std::uint32_t& priority = priorities[{binding.top, binding.source}];
        priority = std::max(priority, binding.action->set->priority);
    }
    return priorities;
}

XrVector2f ReadSource(const Devices& devices, const Binding& binding) {
    const Device& device = devices[binding.top];
    switch (binding.action->type) {
        case XR_ACTION_TYPE_BOOLEAN_INPUT:
            return {device.Value(binding.source) > 0.5f ? 1.0f : 0.0f, 0.0f};
        case XR_ACTION_TYPE_FLOAT_INPUT:
            return {device.Value(binding.source), 0.0f};
        case XR_ACTION_TYPE_VECTOR2F_INPUT:
            return device.Vector(binding.top, binding.source);
        default:
            return {0.0f, 0.0f};
    }
}

// Of several sources the one that is moved furthest counts.
void Combine(SubactionState& state, const XrVector2f& value) {
    state.active = true;
    if (std::hypot(value.x, value.y) > std::hypot(state.value.x, state.value.y)) state.value = value;
}

void CompareWithLast(SubactionState& state, const SubactionState& last, XrTime now) {
    if (!state.active) return;
    // What was not active before has not changed.
    state.changed = last.active && (state.value.x != last.value.x || state.value.y != last.value.y);
    state.last_change = state.changed || !last.active ? now : last.last_change;
}

void ReadAllStates(Session& session, const ActiveSets& active) {
    Input& input = session.input;
    const auto priorities = PrioritiesOf(input.bindings, active);
    std::unordered_map<const Action*, ActionState> states;
    for (const Binding& binding : input.bindings) {
        if (!IsActive(active, binding)) continue;
        if (binding.action->set->priority < priorities.at({binding.top, binding.source})) continue;
        const XrVector2f value = ReadSource(session.devices, binding);
        ActionState& state = states[binding.action.get()];
        Combine(state[static_cast<std::size_t>(binding.top)], value);
        Combine(state[kAllTogether], value);
    }
    const XrTime now = Now();
    for (auto& [action, state] : states) {
        const ActionState& last = input.states[action];
        for (std::size_t i = 0; i < state.size(); ++i) CompareWithLast(state[i], last[i], now);
    }
    input.states = std::move(states);
}

// The checks that all getters share, and the state that is asked for.
SubactionState StateOf(const Runtime& runtime, const Session& session, const XrActionStateGetInfo* info,
                       XrActionType type) {
    RequireType(info, XR_TYPE_ACTION_STATE_GET_INFO);
    const auto action = runtime.Get(info->action);
    if (!session.input.IsAttached(*action->set)) Refuse(XR_ERROR_ACTIONSET_NOT_ATTACHED);
    if (action->type != type) Refuse(XR_ERROR_ACTION_TYPE_MISMATCH);
    const auto top = action->CheckedSubaction(*session.instance, info->subactionPath);
    const auto found = session.input.states.find(action.get());
    if (found == session.input.states.end()) return {};
    return found->second[top ? static_cast<std::size_t>(*top) : kAllTogether];
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

bool Input::IsAttached(const ActionSet& set) const {
    return std::any_of(attached.begin(), attached.end(), [&](const auto& other) { return other.get() == &set; });
}

bool Input::SelectProfiles(const Devices& devices) {
    std::array<const Profile*, kTopLevelCount> selected = {};
    for (std::size_t i = 0; i < kTopLevelCount; ++i) {
        const Profile* profile = devices.by_top_level[i].SeenProfile();
        if (bindings_by_profile.count(profile) > 0) selected[i] = profile;
    }
    if (selected == profiles) return false;
    profiles = selected;
    bindings.clear();
    for (std::size_t i = 0; i < kTopLevelCount; ++i) {
        if (!profiles[i]) continue;
        for (const Binding& binding : bindings_by_profile.at(profiles[i])) {
            if (binding.top == static_cast<TopLevel>(i)) bindings.push_back(binding);
        }
    }
    return true;
}

std::optional<XrPosef> Input::LocateAction(const Devices& devices, const Action& action,
                                           std::optional<TopLevel> top) const {
    const auto state = states.find(&action);
    if (state == states.end()) return std::nullopt;
    for (const Binding& binding : bindings) {
        if (binding.action.get() != &action || (top && binding.top != *top)) continue;
        const auto index = static_cast<std::size_t>(binding.top);
        const Device& device = devices[binding.top];
        // The device may have become another one since the last sync.
        if (state->second[index].active && device.IsLocated() && device.profile == profiles[index])
            return device.Pose(binding.top, binding.source);
    }
    return std::nullopt;
}

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
        ReadAllStates(owner, active);
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
