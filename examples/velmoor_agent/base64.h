// Pictures travel as base64 text.
#pragma once

#include <string>
#include <string_view>

namespace agent {

// The bytes of `text`; characters that are no base64 end it.
std::string DecodeBase64(std::string_view text);

}  // namespace agent
