// The environment as a value: the checks are given one, and tests make their own.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvanic_xr {

using Environment = std::map<std::string, std::string, std::less<>>;

Environment CurrentEnvironment();

// Nothing if the variable is not set or empty; the loader makes no difference between the two, but for the switches of
// implicit layers, which need only be set.
std::optional<std::string> ValueOf(const Environment& environment, std::string_view name);

// The parts of a list that is separated by ":", without the empty ones.
std::vector<std::string> SplitList(std::string_view list);

}  // namespace orvanic_xr
