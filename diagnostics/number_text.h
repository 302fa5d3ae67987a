#pragma once

#include <string>

namespace orvanic_xr {

// `value` as printf's "%f" writes it in the C locale, whatever the host's locale is: six decimals, "inf", "nan".
std::string FixedText(double value);

}  // namespace orvanic_xr
