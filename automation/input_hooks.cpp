// What the application reads of its actions. The runtime is always asked, and says what is wrong with a call. Its
// answer holds for real devices. What a simulated one says is laid over it.
#include <algorithm>
#include <cmath>

#include "automation/guard.h"
#include "automation/hooks.h"
#include "automation/session.h"

namespace automation {
namespace {

using xr_input::SubactionState;

constexpr TopLevels kEverywhere = 0xFF;

xr_input::ActiveSets ActiveSetsOf(const Instance& instance, const XrActionsSyncInfo& info) {
    xr_input::ActiveSets active;
    for (std::uint32_t i = 0; i < info.countActiveActionSets; ++i) {
        const auto set = Registry::instance().Find(info.activeActionSets[i].actionSet);
        if (!set) continue;
        const XrPath path = info.activeActionSets[i].subactionPath;
        const auto top = instance.TopLevelOf(path);
        const TopLevels tops = top ? xr_input::BitOf(*top) : (path == XR_NULL_PATH ? kEverywhere : kElsewhere);
        active[set.get()] = static_cast<TopLevels>(active[set.get()] | tops);
    }
    return active;
}

void SyncSimulated(Session& session, const XrActionsSyncInfo& info, bool focused) {
    const auto active = ActiveSetsOf(*session.instance, info);
    const XrTime now = session.LatestTime();
    bool changed = false;
    {
        const std::lock_guard lock(session.mutex);
        if (!focused) {
            session.input.states.clear();
            return;
        }
        changed = session.input.SelectProfiles(session.devices) || session.devices_changed;
        session.devices_changed = false;
        session.input.Sync(session.devices, active, now);
    }
    if (!changed) return;
    const std::lock_guard lock(session.instance->mutex);
    auto& events = session.instance->profile_events;
    if (std::ranges::find(events, session.handle) == events.end()) events.push_back(session.handle);
}

// Between the records of the four types and what they have in common.
SubactionState Read(const XrActionStateBoolean& state) {
    return {state.isActive != XR_FALSE,
            state.changedSinceLastSync != XR_FALSE,
            {state.currentState ? 1.0f : 0.0f, 0.0f},
            state.lastChangeTime};
}
SubactionState Read(const XrActionStateFloat& state) {
    return {state.isActive != XR_FALSE,
            state.changedSinceLastSync != XR_FALSE,
            {state.currentState, 0.0f},
            state.lastChangeTime};
}
SubactionState Read(const XrActionStateVector2f& state) {
    return {state.isActive != XR_FALSE, state.changedSinceLastSync != XR_FALSE, state.currentState,
            state.lastChangeTime};
}
SubactionState Read(const XrActionStatePose& state) {
    return {state.isActive != XR_FALSE, false, {}, 0};
}

template <class State>
void WriteMarks(const SubactionState& from, State& state) {
    state.changedSinceLastSync = from.changed;
    state.lastChangeTime = from.last_change;
    state.isActive = from.active;
}
void Write(const SubactionState& from, XrActionStateBoolean& state) {
    state.currentState = from.value.x != 0.0f;
    WriteMarks(from, state);
}
void Write(const SubactionState& from, XrActionStateFloat& state) {
    state.currentState = from.value.x;
    WriteMarks(from, state);
}
void Write(const SubactionState& from, XrActionStateVector2f& state) {
    state.currentState = from.value;
    WriteMarks(from, state);
}
void Write(const SubactionState& from, XrActionStatePose& state) {
    state.isActive = from.active;
}

// Of several sources the one that is moved furthest counts.
SubactionState Combined(const SubactionState& a, const SubactionState& b) {
    if (!a.active) return b;
    if (!b.active) return a;
    const bool is_b = std::hypot(b.value.x, b.value.y) > std::hypot(a.value.x, a.value.y);
    return is_b ? b : a;
}

// What the real devices say of an action that was asked for without naming one. `whole` is the runtime's answer, in
// which a real device counts that is simulated now.
template <class State, class Function>
SubactionState RealPart(const Session& session, const Action& action, const XrActionStateGetInfo& info,
                        const State& whole, Function next) {
    const auto real = static_cast<TopLevels>(action.suggested_on & ~session.simulated);
    if (action.subactions == 0) return real != 0 ? Read(whole) : SubactionState{};
    SubactionState combined;
    for (const XrPath path : action.subaction_paths) {
        if (!session.IsReal(path)) continue;
        XrActionStateGetInfo one = info;
        one.subactionPath = path;
        State state = whole;
        if (XR_SUCCEEDED(next(session.handle, &one, &state))) combined = Combined(combined, Read(state));
    }
    return combined;
}

template <class State, class Function>
XrResult GetState(Function NextFunctions::*slot, XrSession session, const XrActionStateGetInfo* info, State* state) {
    const auto owner = Registry::instance().Find(session);
    if (!owner) return XR_ERROR_HANDLE_INVALID;
    const Function next = owner->instance->next.*slot;
    const XrResult result = next(session, info, state);
    if (XR_FAILED(result) || !owner->Simulates()) return result;
    const auto action = Registry::instance().Find(info->action);
    if (!action || !owner->Concerns(*action) || owner->IsReal(info->subactionPath)) return result;
    const auto top = owner->instance->TopLevelOf(info->subactionPath);
    SubactionState simulated;
    {
        const std::lock_guard lock(owner->mutex);
        simulated = owner->input.StateOf(*action, top);
    }
    Write(top ? simulated : Combined(simulated, RealPart(*owner, *action, *info, *state, next)), *state);
    return result;
}

}  // namespace

XrResult SyncActions(XrSession session, const XrActionsSyncInfo* info) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->instance->next.SyncActions(session, info);
        if (XR_FAILED(result)) return result;
        NoteFrameThread();
        if (owner->pictures) owner->pictures->InputRead();
        // Once more after the last device went: the application is told that its profile did.
        if (!owner->Simulates() && !owner->HasChangedDevices()) return result;
        GuardOwnWork([&] {
            owner->Latch();
            SyncSimulated(*owner, *info, result != XR_SESSION_NOT_FOCUSED);
        });
        return result;
    });
}

XrResult GetActionStateBoolean(XrSession session, const XrActionStateGetInfo* info, XrActionStateBoolean* state) {
    return Guarded([&] { return GetState(&NextFunctions::GetActionStateBoolean, session, info, state); });
}

XrResult GetActionStateFloat(XrSession session, const XrActionStateGetInfo* info, XrActionStateFloat* state) {
    return Guarded([&] { return GetState(&NextFunctions::GetActionStateFloat, session, info, state); });
}

XrResult GetActionStateVector2f(XrSession session, const XrActionStateGetInfo* info, XrActionStateVector2f* state) {
    return Guarded([&] { return GetState(&NextFunctions::GetActionStateVector2f, session, info, state); });
}

XrResult GetActionStatePose(XrSession session, const XrActionStateGetInfo* info, XrActionStatePose* state) {
    return Guarded([&] { return GetState(&NextFunctions::GetActionStatePose, session, info, state); });
}

XrResult GetCurrentInteractionProfile(XrSession session, XrPath top_level_path, XrInteractionProfileState* profile) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->instance->next.GetCurrentInteractionProfile(session, top_level_path, profile);
        const auto top = owner->instance->TopLevelOf(top_level_path);
        if (XR_FAILED(result) || !top || !owner->Simulates(*top)) return result;
        const xr_input::Profile* current = nullptr;
        {
            const std::lock_guard lock(owner->mutex);
            current = owner->input.profiles[static_cast<std::size_t>(*top)];
        }
        profile->interactionProfile = current ? owner->instance->PathOf(current->path) : XR_NULL_PATH;
        return result;
    });
}

}  // namespace automation
