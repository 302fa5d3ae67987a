// The interaction profiles that are known, and what each has: the rows of profile_table.h, spelt out once.
#pragma once

#include <openxr/openxr.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "xr/input/paths.h"

namespace xr_input {

enum class SourceType : std::uint8_t { kBoolean, kFloat, kVector2, kPose, kHaptic };

// What an application asked for at xrCreateInstance.
struct Offer {
    XrVersion api_version = 0;
    std::set<std::string, std::less<>> extensions;
};

struct Source {
    // Behind the top level path: "input/trigger/value".
    std::string path;
    TopLevels tops;
    // The first version of OpenXR that has it.
    XrVersion since;
};

struct Profile {
    std::string path;
    std::string_view name;
    XrVersion since;
    const char* extension;
    std::vector<Source> sources;

    // By the version that was asked for, or by an extension that was enabled.
    bool IsOfferedBy(const Offer& offer) const;
    bool Has(TopLevel top) const;
    // Exactly this path, or nothing.
    std::optional<std::size_t> Find(TopLevel top, std::string_view path) const;
};

// Null for none. Profiles stay where they are for as long as the process lives.
const Profile* FindProfile(std::string_view path);

SourceType TypeOf(std::string_view source_path);

}  // namespace xr_input
