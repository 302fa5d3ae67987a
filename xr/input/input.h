// What a session's actions say of simulated devices: attached sets, the bindings in force, and the states of the last
// sync. No handles, no locks: who owns it guards it.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "xr/input/actions.h"
#include "xr/input/devices.h"

namespace xr_input {

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

// The sets of one sync, and on which top level paths each is active.
using ActiveSets = std::unordered_map<const ActionSet*, TopLevels>;

struct Input {
    bool IsAttached(const ActionSet& set) const;
    // Takes what was suggested for the attached actions. The profile of every suggestion stays selectable, even where
    // it binds nothing of what is attached.
    void Bind(const Suggestions& suggestions);
    // Switches to the profiles of the devices that are there now. True when anything changed.
    bool SelectProfiles(const Devices& devices);
    // xrSyncActions: reads the sources of the sets that are active.
    void Sync(const Devices& devices, const ActiveSets& active, XrTime now);
    // None of `top` asks for all together. Not active for an action that the last sync did not find.
    SubactionState StateOf(const Action& action, std::optional<TopLevel> top) const;
    // The sources that feed the action now.
    std::vector<std::string> BoundSources(const Action& action) const;
    // The pose that feeds the action now, in world coordinates, if the last sync found the action active.
    std::optional<XrPosef> LocateAction(const Devices& devices, const Action& action,
                                        std::optional<TopLevel> top) const;

    std::vector<std::shared_ptr<const ActionSet>> attached;
    std::map<const Profile*, std::vector<Binding>> bindings_by_profile;
    std::array<const Profile*, kTopLevelCount> profiles = {};
    // Those of the selected profiles.
    std::vector<Binding> bindings;
    std::unordered_map<const Action*, ActionState> states;
};

}  // namespace xr_input
