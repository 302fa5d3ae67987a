#include "capture/base64.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <string>

namespace orvanic_xr {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The two characters of each value of 12 bits.
constexpr auto kPairs = [] {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (std::size_t value = 0; value < pairs.size(); ++value) {
        pairs[value] = {kAlphabet[value >> 6], kAlphabet[value & 63]};
    }
    return pairs;
}();

void WriteGroup(std::uint32_t bits, char* text) {
    std::copy_n(kPairs[bits >> 12].data(), 2, text);
    std::copy_n(kPairs[bits & 0xFFF].data(), 2, text + 2);
}

void EncodeScalar(const std::uint8_t* bytes, std::size_t length, char* text) {
    for (; length >= 3; bytes += 3, length -= 3, text += 4) {
        WriteGroup(static_cast<std::uint32_t>(bytes[0] << 16 | bytes[1] << 8 | bytes[2]), text);
    }
    if (length == 0) return;
    WriteGroup(static_cast<std::uint32_t>(bytes[0] << 16 | (length == 2 ? bytes[1] << 8 : 0)), text);
    if (length == 1) text[2] = '=';
    text[3] = '=';
}

// The vector paths handle each group of three bytes a, b, c as one 32-bit lane. The shuffle lays it out as b a c b,
// so that two multiplications, each of them two shifts at once, move its four sixes of bits into bytes of their own.
// A six becomes a character by an offset, looked up by the range it lies in: 0 for a-z, 1 to 10 for the digits,
// 11 and 12 for + and /, 13 for A-Z.

__attribute__((target("sse4.2"))) inline __m128i CharactersOf12(__m128i bytes) {
    const __m128i layout = _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    const __m128i offsets = _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                          '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
    const __m128i groups = _mm_shuffle_epi8(bytes, layout);
    const __m128i odd = _mm_mulhi_epu16(_mm_and_si128(groups, _mm_set1_epi32(0x0FC0FC00)), _mm_set1_epi32(0x04000040));
    const __m128i even = _mm_mullo_epi16(_mm_and_si128(groups, _mm_set1_epi32(0x003F03F0)), _mm_set1_epi32(0x01000010));
    const __m128i sixes = _mm_or_si128(odd, even);
    const __m128i upper_case = _mm_and_si128(_mm_cmpgt_epi8(_mm_set1_epi8(26), sixes), _mm_set1_epi8(13));
    const __m128i ranges = _mm_or_si128(_mm_subs_epu8(sixes, _mm_set1_epi8(51)), upper_case);
    return _mm_add_epi8(sixes, _mm_shuffle_epi8(offsets, ranges));
}

__attribute__((target("sse4.2"))) void EncodeSse42(const std::uint8_t* bytes, std::size_t length, char* text) {
    // A load is of 16 bytes, of which 12 are used.
    for (; length >= 16; bytes += 12, length -= 12, text += 16) {
        const __m128i loaded = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(text), CharactersOf12(loaded));
    }
    EncodeScalar(bytes, length, text);
}

// The same, with 12 bytes in each half of the register.
__attribute__((target("avx2"))) inline __m256i CharactersOf24(__m256i bytes) {
    const __m256i layout = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10,  //
                                            1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    const __m256i offsets = _mm256_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                             '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0,
                                             'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                             '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
    const __m256i groups = _mm256_shuffle_epi8(bytes, layout);
    const __m256i odd =
        _mm256_mulhi_epu16(_mm256_and_si256(groups, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
    const __m256i even =
        _mm256_mullo_epi16(_mm256_and_si256(groups, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
    const __m256i sixes = _mm256_or_si256(odd, even);
    const __m256i upper_case = _mm256_and_si256(_mm256_cmpgt_epi8(_mm256_set1_epi8(26), sixes), _mm256_set1_epi8(13));
    const __m256i ranges = _mm256_or_si256(_mm256_subs_epu8(sixes, _mm256_set1_epi8(51)), upper_case);
    return _mm256_add_epi8(sixes, _mm256_shuffle_epi8(offsets, ranges));
}

__attribute__((target("avx2"))) void EncodeAvx2(const std::uint8_t* bytes, std::size_t length, char* text) {
    for (; length >= 28; bytes += 24, length -= 24, text += 32) {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
        const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + 12));
        const __m256i loaded = _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(text), CharactersOf24(loaded));
    }
    // Said here, since a compiler may jump to the rest without it: with the upper halves in use, whatever this thread
    // does next in SSE code is slowed to less than half, in the application as well.
    _mm256_zeroupper();
    EncodeScalar(bytes, length, text);
}

constexpr Base64Path kPaths[] = {
    {"scalar", [] { return true; }, EncodeScalar},
    {"sse4.2", [] { return __builtin_cpu_supports("sse4.2") != 0; }, EncodeSse42},
    {"avx2", [] { return __builtin_cpu_supports("avx2") != 0; }, EncodeAvx2},
};

const Base64Path& FastestPath() {
    return *std::find_if(std::rbegin(kPaths), std::rend(kPaths),
                         [](const Base64Path& row) { return row.is_supported(); });
}

}  // namespace

std::span<const Base64Path> base64_paths() {
    return kPaths;
}

std::string encode_base64(const std::uint8_t* bytes, std::size_t length) {
    static const Base64Path& path = FastestPath();
    // In pieces that stay in the cache: the string's memory is then written once, not zeroed first.
    constexpr std::size_t kPiece = 3 * 4096;
    char piece[base64_length(kPiece)];
    std::string text;
    text.reserve(base64_length(length));
    while (length > 0) {
        const std::size_t taken = std::min(length, kPiece);
        path.encode(bytes, taken, piece);
        text.append(piece, base64_length(taken));
        bytes += taken;
        length -= taken;
    }
    return text;
}

}  // namespace orvanic_xr
