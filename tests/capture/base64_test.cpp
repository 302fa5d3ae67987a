#include "capture/base64.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/capture/decoded_png.h"

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

TEST(Base64, EachPathWritesTheSameTextForEachLength) {
    int tested = 0;
    for (const Base64Path& path : base64_paths()) {
        SCOPED_TRACE(path.name);
        if (!path.is_supported()) continue;
        ++tested;
        for (std::size_t length = 0; length <= 200; ++length) {
            const Bytes bytes = Random(length, static_cast<std::uint32_t>(length) + 1);
            ASSERT_EQ(Base64Decoded(Encoded(path, bytes)), bytes) << length << " bytes";
        }
        for (std::uint32_t seed = 0; seed < 20; ++seed) {
            const Bytes bytes = Random(5000 + 977 * seed, seed);
            ASSERT_EQ(Base64Decoded(Encoded(path, bytes)), bytes) << "seed " << seed;
        }
    }
    EXPECT_GE(tested, 1);
}

TEST(Base64, LongInputIsJoinedFromItsPiecesWithoutASeam) {
    for (const std::size_t length : {12287u, 12288u, 12289u, 24576u, 100001u}) {
        const Bytes bytes = Random(length, 7);
        EXPECT_TRUE(Base64Decoded(encode_base64(bytes.data(), length)) == bytes) << length;
    }
}

}  // namespace
}  // namespace orvanic_xr
