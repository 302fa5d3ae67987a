// Compares two pictures of the same scene, pixel by pixel as an eye would. Pure.
//
// Colours are compared in YIQ, weighted as eyes are. A pixel that differs and lies on an edge that one of the pictures
// smooths is left out: renderers differ in that. So are pixels within a mask.
#pragma once

#include <string>
#include <vector>

#include "command/xr/image.h"

namespace velmoor {

struct comparison_limits {
    double threshold = 0.1;  // of one pixel's colour, from 0 (the same) to 1 (black and white)
    double share = 0.001;    // of the pixels that may differ, of those outside of the masks
    std::vector<area> masks;
    // With more than 0: both are first made smaller, so that each pixel is the mean of so many in a row and in a
    // column. For pictures of other GPUs.
    int blur = 0;
};

struct comparison {
    bool is_same = false;
    std::size_t differing = 0;
    std::size_t compared = 0;  // pixels
    double share = 0;
    std::string message;  // the measured value and the limits, whatever came of it
    image difference;     // the expected picture in pale grey, with what differs in red and smoothed edges in yellow
};

comparison compare(const image& expected, const image& actual, const comparison_limits& limits = {});

// Whether all pixels have nearly one colour: then nothing was drawn.
bool is_blank(const image& what);

}  // namespace velmoor
