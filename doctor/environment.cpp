#include "doctor/environment.h"

#include <unistd.h>

#include <algorithm>

namespace orvanic_xr {

Environment CurrentEnvironment() {
    Environment environment;
    for (char** entry = environ; entry && *entry; ++entry) {
        const std::string_view text = *entry;
        const std::size_t equals = text.find('=');
        if (equals != std::string_view::npos) environment.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
    return environment;
}

std::optional<std::string> ValueOf(const Environment& environment, std::string_view name) {
    const auto found = environment.find(name);
    if (found == environment.end() || found->second.empty()) return std::nullopt;
    return found->second;
}

std::vector<std::string> SplitList(std::string_view list) {
    std::vector<std::string> parts;
    while (!list.empty()) {
        const std::size_t end = std::min(list.find(':'), list.size());
        if (end > 0) parts.emplace_back(list.substr(0, end));
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return parts;
}

}  // namespace orvanic_xr
