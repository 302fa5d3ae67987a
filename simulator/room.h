// The room that the wearer stands in: its size, the floor in the middle of the STAGE space.
#pragma once

namespace simulator {

// Metres along x, z and y.
inline constexpr float kRoomWidth = 5.0f;
inline constexpr float kRoomDepth = 4.0f;
inline constexpr float kRoomHeight = 2.6f;

}  // namespace simulator
