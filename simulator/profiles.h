// The interaction profiles that the runtime knows, as tables of what each has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "simulator/paths.h"

namespace simulator {

enum class SourceType : std::uint8_t { kBoolean, kFloat, kVector2, kPose, kHaptic };

// Bits, one for each TopLevel.
using TopLevels = std::uint8_t;
constexpr TopLevels BitOf(TopLevel top) {
    return static_cast<TopLevels>(1u << static_cast<unsigned>(top));
}
inline constexpr TopLevels kLeft = BitOf(TopLevel::kLeftHand);
inline constexpr TopLevels kRight = BitOf(TopLevel::kRightHand);
inline constexpr TopLevels kBoth = kLeft | kRight;
inline constexpr TopLevels kHeadOnly = BitOf(TopLevel::kHead);
inline constexpr TopLevels kGamepadOnly = BitOf(TopLevel::kGamepad);

struct Source {
    // Behind the top level path: "input/trigger/value".
    std::string_view path;
    TopLevels tops;
};

struct Profile {
    std::string_view path;
    // What a user would call the device.
    std::string_view name;
    // The extension that has to be enabled for it, or null.
    const char* extension;
    std::span<const Source> sources;

    bool Has(TopLevel top) const;
    // Exactly this path, or nothing.
    std::optional<std::size_t> Find(TopLevel top, std::string_view path) const;
};

std::span<const Profile> AllProfiles();
const Profile* FindProfile(std::string_view path);

SourceType TypeOf(std::string_view source_path);

}  // namespace simulator
