// Actions without their handles, and what of the suggestions for them holds: who owns actions derives from these.
#pragma once

#include <openxr/openxr.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "xr/input/profiles.h"

namespace xr_input {

struct ActionSet {
    std::uint32_t priority = 0;
    // Those that its actions were created with.
    TopLevels subactions = 0;
};

struct Action {
    // Outlives the set's handle for as long as something refers to the action.
    std::shared_ptr<const ActionSet> set;
    XrActionType type = XR_ACTION_TYPE_BOOLEAN_INPUT;
    TopLevels subactions = 0;
};

// A suggested binding that the profile has: `path` in full.
struct SuggestedBinding {
    std::shared_ptr<const Action> action;
    std::string path;
};

// What was last suggested for each profile.
using Suggestions = std::map<const Profile*, std::vector<SuggestedBinding>>;

// One input source that feeds one action, or one output that it drives.
struct Binding {
    std::shared_ptr<const Action> action;
    TopLevel top;
    std::size_t source;
};

// Whether `rest`, behind the top level path, is a source of the profile, or one without its component
// ("input/trigger"), which the runtime then picks.
bool Offers(const Profile& profile, XrVersion api_version, TopLevel top, std::string_view rest);

// The source of the profile that the suggestion means for an action of this type; nothing where there is none.
std::optional<Binding> Resolve(const Profile& profile, const SuggestedBinding& suggestion);

// "input/trigger/value" reads "Trigger Value".
std::string InWords(std::string_view source_path);

// The name of a source for people, of the parts that are asked for. `rest` as above.
std::string LocalizedName(const Profile& profile, TopLevel top, std::string_view rest,
                          XrInputSourceLocalizedNameFlags parts);

}  // namespace xr_input
