// Pictures as pixels: read, cut, made smaller and written. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velmoor {

struct image {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels;  // red, green, blue, opacity; first row at the top
};

struct area {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

// Throws std::runtime_error if it is no PNG file, or a damaged one.
image read_png(std::string_view file);

// The part of it that lies in `what`, which has to be inside.
image cut(const image& from, const area& what);

// With the same proportions, each pixel the mean of those that it covers. Not made larger.
image with_largest_edge(const image& from, int edge);

// Files. Throw std::runtime_error if memory runs out.
std::string write_png(const image& from);
std::string write_jpeg(const image& from, int quality);

}  // namespace velmoor
