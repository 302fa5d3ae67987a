// Texts that leave through the C boundary, in buffers that belong to the caller.
#pragma once

#include <cstdint>
#include <string_view>

namespace orvanic_xr {

inline constexpr std::int32_t kBufferTooSmall = -11;

// Copies `text` and a terminator to `buffer`, which has room for `capacity` bytes, and stores the size of both
// in `count`, if it is not null, whether or not they fit. A capacity of 0 asks for the size only, and a null
// buffer is no error. Returns 0, or kBufferTooSmall for a buffer that is too small, which is left untouched.
std::int32_t WriteToCallerBuffer(std::string_view text, std::uint32_t capacity, std::uint32_t* count, char* buffer);

}  // namespace orvanic_xr
