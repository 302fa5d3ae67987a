#include "command/xr/image.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>

#include "capture/image_encoding.h"

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_PNG
#define STBI_NO_STDIO
#define STBI_MAX_DIMENSIONS 16384
#include <stb_image.h>
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#include <stb_image_write.h>

namespace velmoor {
namespace {

constexpr int kChannels = 4;

std::size_t offset_of(int x, int y, int width) {
    return (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * kChannels;
}

image blank(int width, int height) {
    return {width, height, std::vector<std::uint8_t>(offset_of(0, height, width))};
}

// What one new pixel covers of the old ones along one edge: the first, and how much of each.
struct cover {
    int first = 0;
    std::vector<float> shares;  // sum to 1
};

std::vector<cover> covers(int from, int to) {
    std::vector<cover> all(static_cast<std::size_t>(to));
    const double step = static_cast<double>(from) / to;
    for (int i = 0; i < to; ++i) {
        const double begin = i * step;
        const double end = std::min(begin + step, static_cast<double>(from));
        cover& made = all[static_cast<std::size_t>(i)];
        made.first = static_cast<int>(begin);
        for (int each = made.first; each < end && each < from; ++each) {
            made.shares.push_back(
                static_cast<float>((std::min(end, each + 1.0) - std::max<double>(begin, each)) / step));
        }
    }
    return all;
}

}  // namespace

image read_png(std::string_view file) {
    image read;
    const auto* const bytes = reinterpret_cast<const stbi_uc*>(file.data());
    const std::unique_ptr<stbi_uc, void (*)(void*)> pixels(
        stbi_load_from_memory(bytes, static_cast<int>(file.size()), &read.width, &read.height, nullptr, kChannels),
        stbi_image_free);
    if (!pixels) throw std::runtime_error("the picture is no whole PNG file");
    read.pixels.assign(pixels.get(), pixels.get() + offset_of(0, read.height, read.width));
    return read;
}

image cut(const image& from, const area& what) {
    image part = blank(what.width, what.height);
    for (int y = 0; y < what.height; ++y) {
        std::copy_n(from.pixels.begin() + static_cast<std::ptrdiff_t>(offset_of(what.x, what.y + y, from.width)),
                    offset_of(what.width, 0, 0),
                    part.pixels.begin() + static_cast<std::ptrdiff_t>(offset_of(0, y, what.width)));
    }
    return part;
}

image with_largest_edge(const image& from, int edge) {
    const int largest = std::max(from.width, from.height);
    if (largest <= edge) return from;
    const auto scaled = [&](int size) {
        return std::max(1, static_cast<int>(std::lround(static_cast<double>(size) * edge / largest)));
    };
    image small = blank(scaled(from.width), scaled(from.height));
    const std::vector<cover> columns = covers(from.width, small.width);
    const std::vector<cover> rows = covers(from.height, small.height);
    std::vector<float> row(offset_of(0, 1, from.width));
    for (int y = 0; y < small.height; ++y) {
        std::fill(row.begin(), row.end(), 0.0f);
        const cover& of_rows = rows[static_cast<std::size_t>(y)];
        for (std::size_t k = 0; k < of_rows.shares.size(); ++k) {
            const auto* const old = from.pixels.data() + offset_of(0, of_rows.first + static_cast<int>(k), from.width);
            for (std::size_t i = 0; i < row.size(); ++i) row[i] += of_rows.shares[k] * static_cast<float>(old[i]);
        }
        for (int x = 0; x < small.width; ++x) {
            const cover& of_columns = columns[static_cast<std::size_t>(x)];
            for (std::size_t channel = 0; channel < kChannels; ++channel) {
                float sum = 0.5f;  // rounds
                for (std::size_t k = 0; k < of_columns.shares.size(); ++k) {
                    const std::size_t pixel = static_cast<std::size_t>(of_columns.first) + k;
                    sum += of_columns.shares[k] * row[pixel * kChannels + channel];
                }
                small.pixels[offset_of(x, y, small.width) + channel] = static_cast<std::uint8_t>(std::min(sum, 255.0f));
            }
        }
    }
    return small;
}

std::string write_png(const image& from) {
    const auto file = orvanic_xr::encode_png(from.pixels, static_cast<std::uint32_t>(from.width),
                                             static_cast<std::uint32_t>(from.height));
    if (!file) throw std::runtime_error("the picture can't be written as PNG");
    return {file->begin(), file->end()};
}

std::string write_jpeg(const image& from, int quality) {
    std::string file;
    const auto append = [](void* context, void* bytes, int size) {
        static_cast<std::string*>(context)->append(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
    };
    if (!stbi_write_jpg_to_func(append, &file, from.width, from.height, kChannels, from.pixels.data(), quality)) {
        throw std::runtime_error("the picture can't be written as JPEG");
    }
    return file;
}

}  // namespace velmoor
