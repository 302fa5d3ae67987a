// From where an eye sees, and how wide.
#pragma once

#include <openxr/openxr.h>

namespace simulator {

struct EyeView {
    // In world coordinates.
    XrPosef pose;
    XrFovf fov;
};

}  // namespace simulator
