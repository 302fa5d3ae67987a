// The interaction profiles that the runtime knows, and what each has: the rows of profile_table.h, spelt out once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/paths.h"

namespace simulator {

struct Instance;

enum class SourceType : std::uint8_t { kBoolean, kFloat, kVector2, kPose, kHaptic };

// Bits, one for each TopLevel.
using TopLevels = std::uint8_t;
constexpr TopLevels BitOf(TopLevel top) {
    return static_cast<TopLevels>(1u << static_cast<unsigned>(top));
}
inline constexpr TopLevels kLeft = BitOf(TopLevel::kLeftHand);
inline constexpr TopLevels kRight = BitOf(TopLevel::kRightHand);
inline constexpr TopLevels kBoth = kLeft | kRight;

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

    // By the version that the instance asked for, or by an extension that it enabled.
    bool IsOffered(const Instance& instance) const;
    bool Has(TopLevel top) const;
    // Exactly this path, or nothing.
    std::optional<std::size_t> Find(TopLevel top, std::string_view path) const;
};

// Null for none. Profiles stay where they are for as long as the process lives.
const Profile* FindProfile(std::string_view path);

SourceType TypeOf(std::string_view source_path);

}  // namespace simulator
