#include "xr/input/input.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace xr_input {
namespace {

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

}  // namespace

bool Input::IsAttached(const ActionSet& set) const {
    return std::any_of(attached.begin(), attached.end(), [&](const auto& other) { return other.get() == &set; });
}

void Input::Bind(const Suggestions& suggestions) {
    for (const auto& [profile, suggested] : suggestions) {
        std::vector<Binding>& bound = bindings_by_profile[profile];
        for (const SuggestedBinding& suggestion : suggested) {
            if (!IsAttached(*suggestion.action->set)) continue;
            if (auto binding = Resolve(*profile, suggestion)) bound.push_back(std::move(*binding));
        }
    }
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

void Input::Sync(const Devices& devices, const ActiveSets& active, XrTime now) {
    const auto priorities = PrioritiesOf(bindings, active);
    std::unordered_map<const Action*, ActionState> read;
    for (const Binding& binding : bindings) {
        if (!IsActive(active, binding)) continue;
        if (binding.action->set->priority < priorities.at({binding.top, binding.source})) continue;
        const XrVector2f value = ReadSource(devices, binding);
        ActionState& state = read[binding.action.get()];
        Combine(state[static_cast<std::size_t>(binding.top)], value);
        Combine(state[kAllTogether], value);
    }
    for (auto& [action, state] : read) {
        const ActionState& last = states[action];
        for (std::size_t i = 0; i < state.size(); ++i) CompareWithLast(state[i], last[i], now);
    }
    states = std::move(read);
}

SubactionState Input::StateOf(const Action& action, std::optional<TopLevel> top) const {
    const auto found = states.find(&action);
    if (found == states.end()) return {};
    return found->second[top ? static_cast<std::size_t>(*top) : kAllTogether];
}

std::vector<std::string> Input::BoundSources(const Action& action) const {
    std::vector<std::string> sources;
    for (const Binding& binding : bindings) {
        if (binding.action.get() != &action) continue;
        const auto top = static_cast<std::size_t>(binding.top);
        sources.push_back(std::string(kTopLevelPaths[top]) + "/" + profiles[top]->sources[binding.source].path);
    }
    return sources;
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

}  // namespace xr_input
