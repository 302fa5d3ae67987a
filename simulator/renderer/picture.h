// What an eye sees, drawn in software: for each pixel the nearest face, found row by row, then its colour. Pixels at
// which faces meet are sampled four times, so that edges are smooth. One thread, no lock, nothing kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "simulator/renderer/lit_room.h"
#include "simulator/world.h"

namespace simulator {

// `eye` is 0 for the left and 1 for the right one. `pixels` takes width times height times 4 bytes: RGBA, opaque, first
// row at the top. Dark while the head is nowhere. `room` is that of the world's things.
void DrawPicture(const WorldView& world, const LitRoom& room, std::size_t eye, std::uint32_t width,
                 std::uint32_t height, std::uint8_t* pixels);

}  // namespace simulator
