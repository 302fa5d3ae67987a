#include "simulator/renderer/texture.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

namespace simulator {
namespace {

float FloatOf(std::uint16_t half) {
    const int exponent = half >> 10 & 0x1F;
    const auto fraction = static_cast<float>(half & 0x3FF);
    // What is not finite is no light that could be shown.
    if (exponent == 31) return fraction == 0.0f && (half & 0x8000) == 0 ? 65504.0f : 0.0f;
    const float size = exponent == 0 ? std::ldexp(fraction, -24) : std::ldexp(fraction + 1024.0f, exponent - 25);
    return (half & 0x8000) != 0 ? -size : size;
}

float ShareOf(std::uint8_t number) {
    return static_cast<float>(number) / 255.0f;
}

// Of `bits` of `packed`, from the bit `first` upwards.
float ShareOf(std::uint32_t packed, int first, int bits) {
    const std::uint32_t most = (1u << bits) - 1;
    return static_cast<float>(packed >> first & most) / static_cast<float>(most);
}

Light LightOfShorts(const std::uint8_t* pixel) {
    std::uint16_t numbers[4];
    std::memcpy(numbers, pixel, sizeof(numbers));
    const auto share = [](std::uint16_t number) { return static_cast<float>(number) / 65535.0f; };
    return {share(numbers[0]), share(numbers[1]), share(numbers[2]), share(numbers[3])};
}

Light LightOfTenBits(const std::uint8_t* pixel) {
    std::uint32_t packed;
    std::memcpy(&packed, pixel, sizeof(packed));
    return {ShareOf(packed, 0, 10), ShareOf(packed, 10, 10), ShareOf(packed, 20, 10), ShareOf(packed, 30, 2)};
}

// `use(decode)`, in which `decode(pixel)` is what suits the image: so that this is looked for once and not for each
// pixel.
template <class Use>
auto Decoding(const RawImage& image, const Levels& levels, Use use) {
    const auto of_bytes = [&]<std::size_t kRed>(std::integral_constant<std::size_t, kRed>) {
        constexpr std::size_t kBlue = 2 - kRed;
        if (image.is_srgb) {
            return use([&levels](const std::uint8_t* pixel) {
                return Light{levels.LinearOf(pixel[kRed]), levels.LinearOf(pixel[1]), levels.LinearOf(pixel[kBlue]),
                             ShareOf(pixel[3])};
            });
        }
        return use([](const std::uint8_t* pixel) {
            return Light{ShareOf(pixel[kRed]), ShareOf(pixel[1]), ShareOf(pixel[kBlue]), ShareOf(pixel[3])};
        });
    };
    switch (image.kind) {
        case PixelKind::kRgba8:
            return of_bytes(std::integral_constant<std::size_t, 0>());
        case PixelKind::kBgra8:
            return of_bytes(std::integral_constant<std::size_t, 2>());
        case PixelKind::kRgba16:
            return use(LightOfShorts);
        case PixelKind::kRgb10A2:
            return use(LightOfTenBits);
        default:
            return use([](const std::uint8_t* pixel) {
                std::uint16_t halves[4];
                std::memcpy(halves, pixel, sizeof(halves));
                return Texture::Halves{
                    {FloatOf(halves[0]), FloatOf(halves[1]), FloatOf(halves[2]), FloatOf(halves[3])}};
            });
    }
}

}  // namespace

Levels::Levels() {
    for (std::size_t i = 0; i < linear_.size(); ++i) {
        const double shown = static_cast<double>(i) / 255.0;
        linear_[i] = static_cast<float>(shown <= 0.04045 ? shown / 12.92 : std::pow((shown + 0.055) / 1.055, 2.4));
    }
    for (std::size_t i = 0; i < level_.size(); ++i) {
        // In the middle of the step.
        const double light = std::min((static_cast<double>(i) + 0.5) / (kSteps - 1), 1.0);
        const double shown = light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
        level_[i] = static_cast<std::uint8_t>(std::lround(255.0 * shown));
    }
}

const Levels& Levels::Shared() {
    static const Levels levels;
    return levels;
}

Texture::Texture(const RawImage& image, const XrRect2Di& rect, bool has_alpha, bool is_premultiplied)
    : image_(image),
      left_(rect.offset.x),
      top_(image.bottom_up ? static_cast<std::int32_t>(image.height) - rect.offset.y - rect.extent.height
                           : rect.offset.y),
      width_(rect.extent.width),
      height_(rect.extent.height),
      has_alpha_(has_alpha),
      is_premultiplied_(is_premultiplied) {}

const std::uint8_t* Texture::PixelAt(std::int32_t x, std::int32_t y) const {
    const auto column = static_cast<std::size_t>(left_) + static_cast<std::size_t>(x);
    const auto row = static_cast<std::size_t>(top_) + static_cast<std::size_t>(y);
    const std::size_t stored_row = image_.bottom_up ? image_.height - 1 - row : row;
    return image_.bytes.data() + (stored_row * image_.width + column) * BytesOfPixel(image_.kind);
}

Light Texture::Blended(Light light) const {
    if (!has_alpha_) {
        light.alpha = 1.0f;
    } else if (!is_premultiplied_) {
        light = {light.red * light.alpha, light.green * light.alpha, light.blue * light.alpha, light.alpha};
    }
    return light;
}

Light Texture::Decoded(const Light& bytes) const {
    return Blended(bytes);
}

// As OpenXR blends layers: half floats may hold more than all light.
Light Texture::Decoded(const Halves& halves) const {
    const auto within = [](float value) { return std::clamp(value, 0.0f, 1.0f); };
    const Light light = Blended(halves.light);
    return {within(light.red), within(light.green), within(light.blue), within(light.alpha)};
}

Light Texture::At(std::int32_t x, std::int32_t y) const {
    const std::uint8_t* const pixel = PixelAt(x, y);
    return Decoding(image_, levels_, [&](auto decode) { return Decoded(decode(pixel)); });
}

void Texture::PutRowOver(std::int32_t y, std::span<Light> row) const {
    const std::uint8_t* pixel = PixelAt(0, y);
    const std::size_t step = BytesOfPixel(image_.kind);
    Decoding(image_, levels_, [&](auto decode) {
        for (Light& light : row) {
            light = Over(Decoded(decode(pixel)), light);
            pixel += step;
        }
    });
}

Light Texture::Between(float x, float y) const {
    const float whole_x = std::floor(x - 0.5f);
    const float whole_y = std::floor(y - 0.5f);
    const float share_x = x - 0.5f - whole_x;
    const float share_y = y - 0.5f - whole_y;
    const auto column = [&](int step) { return std::clamp(static_cast<std::int32_t>(whole_x) + step, 0, width_ - 1); };
    const auto row = [&](int step) { return std::clamp(static_cast<std::int32_t>(whole_y) + step, 0, height_ - 1); };
    const Light above = At(column(0), row(0)) * (1.0f - share_x) + At(column(1), row(0)) * share_x;
    const Light below = At(column(0), row(1)) * (1.0f - share_x) + At(column(1), row(1)) * share_x;
    return above * (1.0f - share_y) + below * share_y;
}

}  // namespace simulator
