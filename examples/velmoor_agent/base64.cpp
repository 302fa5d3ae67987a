#include "examples/velmoor_agent/base64.h"

#include <cstdint>

namespace agent {

std::string DecodeBase64(std::string_view text) {
    constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    bytes.reserve(text.size() * 3 / 4);
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const std::size_t value = kAlphabet.find(c);
        if (value == std::string_view::npos) break;
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes.push_back(static_cast<char>(bits >> count & 0xFF));
    }
    return bytes;
}

}  // namespace agent
