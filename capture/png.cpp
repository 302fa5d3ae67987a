#include <exception>

#include "capture/image_encoding.h"

// All of stb stays inside this file: the host application may have its own copy.
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#include <stb/stb_image_write.h>
#pragma GCC diagnostic pop

namespace orvanic_xr {
namespace {

void AppendBytes(void* context, void* data, int size) {
    auto& file = *static_cast<std::optional<std::vector<std::uint8_t>>*>(context);
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    // stb is C code, which no exception may cross.
    try {
        file.emplace(bytes, bytes + size);
    } catch (const std::exception&) {
        file.reset();
    }
}

}  // namespace

std::optional<std::vector<std::uint8_t>> encode_png(const std::vector<std::uint8_t>& pixels, std::uint32_t width,
                                                    std::uint32_t height) {
    std::optional<std::vector<std::uint8_t>> file;
    const int row_stride = static_cast<int>(width * 4);
    const int written = stbi_write_png_to_func(AppendBytes, &file, static_cast<int>(width), static_cast<int>(height), 4,
                                               pixels.data(), row_stride);
    if (!written) return std::nullopt;
    return file;
}

}  // namespace orvanic_xr
