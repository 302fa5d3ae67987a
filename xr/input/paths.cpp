#include "xr/input/paths.h"

namespace xr_input {

std::optional<SplitPath> SplitTopLevel(std::string_view path) {
    for (std::size_t i = 0; i < kTopLevelCount; ++i) {
        const std::string_view top = kTopLevelPaths[i];
        if (path == top) return SplitPath{static_cast<TopLevel>(i), {}};
        if (path.size() > top.size() && path.substr(0, top.size()) == top && path[top.size()] == '/') {
            return SplitPath{static_cast<TopLevel>(i), path.substr(top.size() + 1)};
        }
    }
    return std::nullopt;
}

}  // namespace xr_input
