// The top level paths that devices sit on.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace xr_input {

enum class TopLevel : std::uint8_t { kLeftHand, kRightHand, kHead, kGamepad, kTreadmill };
inline constexpr std::array<std::string_view, 5> kTopLevelPaths = {"/user/hand/left", "/user/hand/right", "/user/head",
                                                                   "/user/gamepad", "/user/treadmill"};
inline constexpr std::size_t kTopLevelCount = kTopLevelPaths.size();

// Bits, one for each TopLevel.
using TopLevels = std::uint8_t;
constexpr TopLevels BitOf(TopLevel top) {
    return static_cast<TopLevels>(1u << static_cast<unsigned>(top));
}
inline constexpr TopLevels kLeft = BitOf(TopLevel::kLeftHand);
inline constexpr TopLevels kRight = BitOf(TopLevel::kRightHand);
inline constexpr TopLevels kBoth = kLeft | kRight;

// The top level path that `path` is or lies below, and what follows it without the slash between.
struct SplitPath {
    TopLevel top;
    std::string_view rest;
};
std::optional<SplitPath> SplitTopLevel(std::string_view path);

}  // namespace xr_input
