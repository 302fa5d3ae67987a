#include "command/pictures/comparison.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace velmoor {
namespace {

constexpr int kChannels = 4;
// The weighted distance between black and white is the square root of that.
constexpr double kGreatestDistance = 35215.0;
// Software renderers differ in the last bits of a colour from one processor to the next.
constexpr int kBlankSpread = 4;
// So many equal neighbours make a pixel part of a plane, and not of a smoothed edge.
constexpr int kPlane = 3;

const std::uint8_t* pixel(const image& of, int x, int y) {
    const auto index = static_cast<std::size_t>(y) * static_cast<std::size_t>(of.width) + static_cast<std::size_t>(x);
    return of.pixels.data() + index * kChannels;
}

// Over white, as far as it is not opaque.
std::array<double, 3> opaque(const std::uint8_t* of) {
    const double opacity = of[3] / 255.0;
    return {255 + (of[0] - 255) * opacity, 255 + (of[1] - 255) * opacity, 255 + (of[2] - 255) * opacity};
}

double brightness(const std::uint8_t* of) {
    const auto [r, g, b] = opaque(of);
    return 0.29889531 * r + 0.58662247 * g + 0.11448223 * b;
}

double distance(const std::uint8_t* one, const std::uint8_t* other) {
    if (std::equal(one, one + kChannels, other)) return 0;
    const auto first = opaque(one);
    const auto second = opaque(other);
    const double r = first[0] - second[0];
    const double g = first[1] - second[1];
    const double b = first[2] - second[2];
    const double y = 0.29889531 * r + 0.58662247 * g + 0.11448223 * b;
    const double i = 0.59597799 * r - 0.27417610 * g - 0.32180189 * b;
    const double q = 0.21147017 * r - 0.52261711 * g + 0.31114694 * b;
    return 0.5053 * y * y + 0.299 * i * i + 0.1957 * q * q;
}

template <typename Take>
void each_neighbour(const image& of, int x, int y, const Take& take) {
    for (int ny = std::max(y - 1, 0); ny <= std::min(y + 1, of.height - 1); ++ny) {
        for (int nx = std::max(x - 1, 0); nx <= std::min(x + 1, of.width - 1); ++nx) {
            if (nx != x || ny != y) take(nx, ny);
        }
    }
}

// Beyond the picture's border all is equal.
bool is_in_plane(const image& of, int x, int y) {
    int equal = x == 0 || y == 0 || x == of.width - 1 || y == of.height - 1 ? 1 : 0;
    each_neighbour(of, x, y, [&](int nx, int ny) {
        const auto* const here = pixel(of, x, y);
        if (std::equal(here, here + kChannels, pixel(of, nx, ny))) ++equal;
    });
    return equal >= kPlane;
}

// Between a darker and a brighter neighbour, of which one lies within a plane in both pictures.
bool is_smoothed(const image& of, const image& other, int x, int y) {
    struct extreme {
        double by = 0;
        int x = 0;
        int y = 0;
    };
    extreme darkest;
    extreme brightest;
    int equal = x == 0 || y == 0 || x == of.width - 1 || y == of.height - 1 ? 1 : 0;
    const double here = brightness(pixel(of, x, y));
    each_neighbour(of, x, y, [&](int nx, int ny) {
        const double by = brightness(pixel(of, nx, ny)) - here;
        if (by == 0) ++equal;
        if (by < darkest.by) darkest = {by, nx, ny};
        if (by > brightest.by) brightest = {by, nx, ny};
    });
    if (equal >= kPlane || darkest.by == 0 || brightest.by == 0) return false;
    const auto lies_in_planes = [&](const extreme& at) {
        return is_in_plane(of, at.x, at.y) && is_in_plane(other, at.x, at.y);
    };
    return lies_in_planes(darkest) || lies_in_planes(brightest);
}

bool lies_in(const area& mask, int x, int y) {
    return x >= mask.x && y >= mask.y && x < mask.x + mask.width && y < mask.y + mask.height;
}

image smaller(const image& from, int by) {
    return with_largest_edge(from, std::max(1, std::max(from.width, from.height) / by));
}

// So that what is not to be compared is the same in both, also after they were made smaller.
image masked(image from, const std::vector<area>& masks) {
    for (const area& mask : masks) {
        for (int y = std::max(mask.y, 0); y < std::min(mask.y + mask.height, from.height); ++y) {
            for (int x = std::max(mask.x, 0); x < std::min(mask.x + mask.width, from.width); ++x) {
                auto* const at = from.pixels.data() + (pixel(from, x, y) - from.pixels.data());
                std::fill_n(at, kChannels, std::uint8_t{0});
            }
        }
    }
    return from;
}

void paint(image& onto, int x, int y, std::array<std::uint8_t, 3> colour) {
    auto* const at = onto.pixels.data() + (pixel(onto, x, y) - onto.pixels.data());
    std::copy(colour.begin(), colour.end(), at);
    at[3] = 255;
}

void compare_pixels(const image& expected, const image& actual, const comparison_limits& limits, comparison& into) {
    const double most = kGreatestDistance * limits.threshold * limits.threshold;
    into.difference = expected;
    for (int y = 0; y < expected.height; ++y) {
        for (int x = 0; x < expected.width; ++x) {
            const bool is_masked = std::any_of(limits.masks.begin(), limits.masks.end(),
                                               [&](const area& each) { return lies_in(each, x, y); });
            const auto pale = static_cast<std::uint8_t>(255 - (255 - brightness(pixel(expected, x, y))) * 0.1);
            paint(into.difference, x, y, {pale, pale, pale});
            if (is_masked) continue;
            ++into.compared;
            if (distance(pixel(expected, x, y), pixel(actual, x, y)) <= most) continue;
            if (is_smoothed(expected, actual, x, y) || is_smoothed(actual, expected, x, y)) {
                paint(into.difference, x, y, {255, 255, 0});
            } else {
                paint(into.difference, x, y, {255, 0, 0});
                ++into.differing;
            }
        }
    }
}

std::string size_of(const image& of) {
    return std::to_string(of.width) + "x" + std::to_string(of.height);
}

}  // namespace

comparison compare(const image& expected, const image& actual, const comparison_limits& limits) {
    comparison made;
    if (expected.width != actual.width || expected.height != actual.height) {
        made.message = "the picture has " + size_of(actual) + " pixels, and " + size_of(expected) + " are expected";
        return made;
    }
    if (is_blank(actual) && !is_blank(expected)) {
        made.message = "the picture is blank: all its pixels have one colour";
        return made;
    }
    if (limits.blur > 1) {
        comparison_limits of_small = limits;
        of_small.masks.clear();
        compare_pixels(smaller(masked(expected, limits.masks), limits.blur),
                       smaller(masked(actual, limits.masks), limits.blur), of_small, made);
    } else {
        compare_pixels(expected, actual, limits, made);
    }
    made.share = made.compared == 0 ? 0 : static_cast<double>(made.differing) / static_cast<double>(made.compared);
    made.is_same = made.share <= limits.share;
    char text[200];
    std::snprintf(text, sizeof text, "%.3f %% of the pixels differ (%zu of %zu), at most %.3f %% may; threshold %g%s",
                  made.share * 100, made.differing, made.compared, limits.share * 100, limits.threshold,
                  limits.blur > 1 ? (", blurred by " + std::to_string(limits.blur)).c_str() : "");
    made.message = text;
    return made;
}

bool is_blank(const image& what) {
    for (std::size_t i = kChannels; i < what.pixels.size(); ++i) {
        if (std::abs(what.pixels[i] - what.pixels[i % kChannels]) > kBlankSpread) return false;
    }
    return true;
}

}  // namespace velmoor
