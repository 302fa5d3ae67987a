#include "layer/action_maps.h"

#include "xr/pose_math.h"

namespace orvanic_xr {

ActionMaps& ActionMaps::instance() {
    static ActionMaps& maps = *new ActionMaps;
    return maps;
}

void ActionMaps::AddPoseKinds(XrAction action, PoseKinds kinds) {
    if (!kinds.isGrip && !kinds.isAim) return;
    std::lock_guard lock(mutex_);
    PoseKinds& known = actionPoseKinds[action];
    known.isGrip |= kinds.isGrip;
    known.isAim |= kinds.isAim;
}

void ActionMaps::AddSpace(XrSpace space, const ActionSpace& entry, const XrPosef& offset) {
    std::lock_guard lock(mutex_);
    actionSpaces[space] = {entry, offset};
    poseActions.insert(entry.action);
}

std::optional<ActionMaps::FoundSpace> ActionMaps::FindSpace(XrSpace space, bool note_first_time) {
    std::lock_guard lock(mutex_);
    const auto found = actionSpaces.find(space);
    if (found == actionSpaces.end()) return std::nullopt;
    FoundSpace located = {found->second.space};
    const auto kinds = actionPoseKinds.find(located.action);
    located.isGrip = kinds != actionPoseKinds.end() && kinds->second.isGrip;
    located.first_time = note_first_time && seenLocateSpaces.insert(space).second;
    return located;
}

XrPosef ActionMaps::OffsetOf(XrSpace space) const {
    std::lock_guard lock(mutex_);
    const auto found = actionSpaces.find(space);
    return found == actionSpaces.end() ? kIdentityPose : found->second.offset;
}

bool ActionMaps::HadSpaceOf(XrAction action) const {
    std::lock_guard lock(mutex_);
    return poseActions.contains(action);
}

void ActionMaps::ForgetSpace(XrSpace space) {
    std::lock_guard lock(mutex_);
    actionSpaces.erase(space);
}

void ActionMaps::ForgetAction(XrAction action) {
    std::lock_guard lock(mutex_);
    actionPoseKinds.erase(action);
    poseActions.erase(action);
    std::erase_if(actionSpaces, [&](const auto& entry) { return entry.second.space.action == action; });
}

void ActionMaps::Clear() {
    std::lock_guard lock(mutex_);
    actionPoseKinds.clear();
    actionSpaces.clear();
    poseActions.clear();
}

}  // namespace orvanic_xr
