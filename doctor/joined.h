#pragma once

#include <string>

namespace orvanic_xr {

// "a, b, c"
template <typename Texts>
std::string Joined(const Texts& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        if (!joined.empty()) joined += ", ";
        joined += text;
    }
    return joined;
}

}  // namespace orvanic_xr
