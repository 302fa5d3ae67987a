// Input and output paths of other controllers in terms of the one as which simulated controllers present
// themselves.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvanic_xr {

inline constexpr const char* kProntoControllerPlusProfile = "/interaction_profiles/kest/pronto_controller_plus";

// The path of that controller that does what `path` does, or nothing if it has none.
std::optional<std::string> ProntoControllerPlusPath(std::string_view path);

}  // namespace orvanic_xr
