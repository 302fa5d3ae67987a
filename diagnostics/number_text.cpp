#include "diagnostics/number_text.h"

#include <charconv>
#include <limits>

namespace orvanic_xr {

std::string FixedText(double value) {
    constexpr int kDecimals = 6;
    char text[std::numeric_limits<double>::max_exponent10 + kDecimals + 8];  // digits, sign, point
    const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, kDecimals).ptr;
    return {text, end};
}

std::string HexText(std::uint64_t value) {
    char text[18] = {'0', 'x'};
    return {text, std::to_chars(text + 2, text + sizeof text, value, 16).ptr};
}

}  // namespace orvanic_xr
