// An eye as the renderer sees through it: which way a place in the picture looks.
#pragma once

#include <cmath>
#include <cstdint>

#include "simulator/renderer/eye_view.h"
#include "simulator/renderer/vector.h"

namespace simulator {

struct Camera {
    Camera(const EyeView& eye, std::uint32_t width, std::uint32_t height) : position(eye.pose.position) {
        const float left = std::tan(eye.fov.angleLeft);
        const float top = std::tan(eye.fov.angleUp);
        const float pixel_width = (std::tan(eye.fov.angleRight) - left) / static_cast<float>(width);
        const float pixel_height = (top - std::tan(eye.fov.angleDown)) / static_cast<float>(height);
        corner = Rotated(eye.pose.orientation, {left, top, -1.0f});
        right = Rotated(eye.pose.orientation, {pixel_width, 0.0f, 0.0f});
        down = Rotated(eye.pose.orientation, {0.0f, -pixel_height, 0.0f});
    }

    // In pixels from the upper left corner; the middle of the first pixel is at 0.5, 0.5. The length is such that
    // distances in it are depths: 1 in the direction of view.
    Vec3 DirectionAt(float x, float y) const { return corner + right * x + down * y; }

    Vec3 position;
    Vec3 corner;
    Vec3 right;
    Vec3 down;
};

}  // namespace simulator
