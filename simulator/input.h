// What a session's actions say: attached sets, the bindings in force, and the states of the last sync.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "simulator/actions.h"
#include "simulator/devices.h"
#include "simulator/profiles.h"

namespace simulator {

struct Session;

// One input source that feeds one action, or one output that it drives.
struct Binding {
    std::shared_ptr<const Action> action;
    TopLevel top;
    std::size_t source;
};

struct SubactionState {
    bool active = false;
    bool changed = false;
    // Scalars stand in x; a boolean is 0 or 1.
    XrVector2f value = {0.0f, 0.0f};
    XrTime last_change = 0;
};

// One state for each top level path, and one that takes them all together.
using ActionState = std::array<SubactionState, kTopLevelCount + 1>;
inline constexpr std::size_t kAllTogether = kTopLevelCount;

struct Input {
    bool IsAttached(const ActionSet& set) const;
    // Switches to the profiles of the devices that are there now. True when anything changed.
    bool SelectProfiles(const Devices& devices);
    // The pose that feeds the action now, in world coordinates, if the last sync found the action active.
    std::optional<XrPosef> LocateAction(const Devices& devices, const Action& action,
                                        std::optional<TopLevel> top) const;

    std::vector<std::shared_ptr<ActionSet>> attached;
    // What was suggested for the attached actions, for each profile.
    std::map<const Profile*, std::vector<Binding>> bindings_by_profile;
    std::array<const Profile*, kTopLevelCount> profiles = {};
    // Those of the selected profiles.
    std::vector<Binding> bindings;
    std::unordered_map<const Action*, ActionState> states;
};

XRAPI_ATTR XrResult XRAPI_CALL SyncActions(XrSession session, const XrActionsSyncInfo* info);
XRAPI_ATTR XrResult XRAPI_CALL GetActionStateBoolean(XrSession session, const XrActionStateGetInfo* info,
                                                     XrActionStateBoolean* state);
XRAPI_ATTR XrResult XRAPI_CALL GetActionStateFloat(XrSession session, const XrActionStateGetInfo* info,
                                                   XrActionStateFloat* state);
XRAPI_ATTR XrResult XRAPI_CALL GetActionStateVector2f(XrSession session, const XrActionStateGetInfo* info,
                                                      XrActionStateVector2f* state);
XRAPI_ATTR XrResult XRAPI_CALL GetActionStatePose(XrSession session, const XrActionStateGetInfo* info,
                                                  XrActionStatePose* state);
XRAPI_ATTR XrResult XRAPI_CALL ApplyHapticFeedback(XrSession session, const XrHapticActionInfo* info,
                                                   const XrHapticBaseHeader* feedback);
XRAPI_ATTR XrResult XRAPI_CALL StopHapticFeedback(XrSession session, const XrHapticActionInfo* info);

}  // namespace simulator
