#pragma once

#include <cstdint>
#include <string>

namespace orvanic_xr {

// `value` as printf's "%f" writes it in the C locale, whatever the host's locale is: six decimals, "inf", "nan".
std::string FixedText(double value);

// "0x1a2b": lower case, no padding.
std::string HexText(std::uint64_t value);

}  // namespace orvanic_xr
