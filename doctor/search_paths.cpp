#include "doctor/search_paths.h"

#include <string_view>

namespace orvanic_xr {
namespace {

void Append(std::vector<std::string>& all, const std::vector<std::string>& more) {
    all.insert(all.end(), more.begin(), more.end());
}

std::vector<std::string> ListOr(const Environment& environment, const char* name, const char* otherwise) {
    return SplitList(ValueOf(environment, name).value_or(otherwise));
}

// At most one: `name` says it, or it is below the home directory; without either there is none.
std::vector<std::string> UserDirectory(const Environment& environment, const char* name, const char* below_home) {
    if (auto directory = ValueOf(environment, name)) return {*directory};
    if (auto home = ValueOf(environment, "HOME")) return {*home + below_home};
    return {};
}

std::vector<std::string> LayerDirectories(const Environment& environment, const LoaderTraits& traits,
                                          std::string_view kind) {
    std::vector<std::string> directories = ListOr(environment, "XDG_CONFIG_DIRS", "/etc/xdg");
    Append(directories, traits.system_directories);
    Append(directories, ListOr(environment, "XDG_DATA_DIRS", "/usr/local/share:/usr/share"));
    Append(directories, UserDirectory(environment, "XDG_DATA_HOME", "/.local/share"));
    for (std::string& directory : directories) directory.append("/openxr/1/api_layers/").append(kind);
    return directories;
}

}  // namespace

std::vector<std::string> RuntimeManifestPaths(const Environment& environment, const LoaderTraits& traits) {
    if (auto path = ValueOf(environment, "XR_RUNTIME_JSON")) return {*path};
    std::vector<std::string> directories = UserDirectory(environment, "XDG_CONFIG_HOME", "/.config");
    Append(directories, ListOr(environment, "XDG_CONFIG_DIRS", "/etc/xdg"));
    Append(directories, traits.system_directories);
    std::vector<std::string> paths;
    for (const std::string& directory : directories) {
        const std::string stem = directory + "/openxr/1/active_runtime.";
        if (!traits.architecture.empty()) paths.push_back(stem + traits.architecture + ".json");
        paths.push_back(stem + "json");
    }
    return paths;
}

std::vector<std::string> ExplicitLayerDirectories(const Environment& environment, const LoaderTraits& traits) {
    if (auto list = ValueOf(environment, "XR_API_LAYER_PATH")) return SplitList(*list);
    return LayerDirectories(environment, traits, "explicit.d");
}

std::vector<std::string> ImplicitLayerDirectories(const Environment& environment, const LoaderTraits& traits) {
    return LayerDirectories(environment, traits, "implicit.d");
}

}  // namespace orvanic_xr
