#include "capture/base64.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace orvanic_xr {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::string Encoded(const Base64Path& path, const Bytes& bytes) {
    constexpr char kGuard[] = "unwritten";
    std::string text(base64_length(bytes.size()), '?');
    text += kGuard;
    path.encode(bytes.data(), bytes.size(), text.data());
    EXPECT_TRUE(text.ends_with(kGuard)) << path.name << " wrote behind the end";
    text.resize(base64_length(bytes.size()));
    return text;
}

Bytes Random(std::size_t length, std::uint32_t seed) {
    std::mt19937 random(seed);
    Bytes bytes(length);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    return bytes;
}

// Bit by bit, with nothing of the encoder in it.
std::string Reference(const Bytes& bytes) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
        unsigned six = 0;
        for (std::size_t i = bit; i < bit + 6; ++i) {
            six = six << 1 | (i / 8 < bytes.size() ? bytes[i / 8] >> (7 - i % 8) & 1u : 0u);
        }
        text += alphabet[six];
    }
    while (text.size() % 4 != 0) text += '=';
    return text;
}

TEST(Base64, EachPathWritesTheSameTextForEachLength) {
    int tested = 0;
    for (const Base64Path& path : base64_paths()) {
        SCOPED_TRACE(path.name);
        if (!path.is_supported()) continue;
        ++tested;
        for (std::size_t length = 0; length <= 200; ++length) {
            const Bytes bytes = Random(length, static_cast<std::uint32_t>(length) + 1);
            ASSERT_EQ(Encoded(path, bytes), Reference(bytes)) << length << " bytes";
        }
        for (std::uint32_t seed = 0; seed < 20; ++seed) {
            const Bytes bytes = Random(5000 + 977 * seed, seed);
            ASSERT_EQ(Encoded(path, bytes), Reference(bytes)) << "seed " << seed;
        }
    }
    EXPECT_GE(tested, 1);
}

TEST(Base64, LongInputIsJoinedFromItsPiecesWithoutASeam) {
    for (const std::size_t length : {12287u, 12288u, 12289u, 24576u, 100001u}) {
        const Bytes bytes = Random(length, 7);
        EXPECT_TRUE(encode_base64(bytes.data(), length) == Reference(bytes)) << length;
    }
}

}  // namespace
}  // namespace orvanic_xr
