// The grammar of math_calc once more, as plain recursion: slow, and fit for short texts only, but too simple to be
// wrong in the same way as the evaluator.
#pragma once

#include <string>

namespace orvanic_xr {

// Throws a std::exception with the message of the failure.
double EvaluateRecursively(const std::string& expression);

}  // namespace orvanic_xr
