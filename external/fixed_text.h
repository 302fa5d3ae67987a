// Texts in fields of fixed size, as they come from the application: nobody promises that they end.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace orvanic_xr {

// The text up to its terminator, or the whole field.
template <std::size_t kSize>
std::string_view TextOf(const char (&field)[kSize]) {
    return {field, strnlen(field, kSize)};
}

// Whether the field holds a text that is neither empty nor unterminated.
template <std::size_t kSize>
bool IsFilledText(const char (&field)[kSize]) {
    const std::size_t length = TextOf(field).size();
    return length > 0 && length < kSize;
}

}  // namespace orvanic_xr
