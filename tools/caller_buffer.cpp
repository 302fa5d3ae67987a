#include "tools/caller_buffer.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace orvanic_xr {

std::int32_t WriteToCallerBuffer(std::string_view text, std::uint32_t capacity, std::uint32_t* count, char* buffer) {
    const std::uint64_t size = std::uint64_t{text.size()} + 1;
    if (count) {
        constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
        *count = static_cast<std::uint32_t>(std::min(size, kLargest));
    }
    if (capacity == 0 || !buffer) return 0;
    if (capacity < size) return kBufferTooSmall;
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    return 0;
}

}  // namespace orvanic_xr
