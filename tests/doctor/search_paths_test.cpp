#include "doctor/search_paths.h"

#include <gmock/gmock.h>

namespace orvanic_xr {
namespace {

using testing::ElementsAre;

TEST(SearchPaths, OfTheRuntimeFollowTheLoader) {
    const LoaderTraits old_loader;
    const LoaderTraits new_loader{{"/etc"}, "x86_64"};
    const LoaderTraits own_build{{"/usr/local/etc", "/etc"}, ""};
    const struct {
        const char* name;
        Environment environment;
        LoaderTraits traits;
        std::vector<std::string> paths;
    } rows[] = {
        {"a bare environment",
         {{"HOME", "/home/u"}},
         old_loader,
         {"/home/u/.config/openxr/1/active_runtime.json", "/etc/xdg/openxr/1/active_runtime.json",
          "/etc/openxr/1/active_runtime.json"}},
        {"each directory is asked for the architecture first",
         {{"XDG_CONFIG_HOME", "/c"}, {"XDG_CONFIG_DIRS", "/d"}},
         new_loader,
         {"/c/openxr/1/active_runtime.x86_64.json", "/c/openxr/1/active_runtime.json",
          "/d/openxr/1/active_runtime.x86_64.json", "/d/openxr/1/active_runtime.json",
          "/etc/openxr/1/active_runtime.x86_64.json", "/etc/openxr/1/active_runtime.json"}},
        {"empty variables count as unset, and no home is no place",
         {{"HOME", ""}, {"XDG_CONFIG_HOME", ""}, {"XDG_CONFIG_DIRS", ""}, {"XR_RUNTIME_JSON", ""}},
         own_build,
         {"/etc/xdg/openxr/1/active_runtime.json", "/usr/local/etc/openxr/1/active_runtime.json",
          "/etc/openxr/1/active_runtime.json"}},
        {"XR_RUNTIME_JSON stands for all",
         {{"HOME", "/home/u"}, {"XR_RUNTIME_JSON", "/r.json"}},
         new_loader,
         {"/r.json"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(RuntimeManifestPaths(row.environment, row.traits), row.paths);
    }
}

TEST(SearchPaths, OfLayersFollowTheLoader) {
    const Environment bare = {{"HOME", "/home/u"}};
    EXPECT_THAT(
        ExplicitLayerDirectories(bare, {}),
        ElementsAre("/etc/xdg/openxr/1/api_layers/explicit.d", "/etc/openxr/1/api_layers/explicit.d",
                    "/usr/local/share/openxr/1/api_layers/explicit.d", "/usr/share/openxr/1/api_layers/explicit.d",
                    "/home/u/.local/share/openxr/1/api_layers/explicit.d"));
    const Environment full = {{"HOME", "/home/u"},
                              {"XDG_CONFIG_DIRS", "/c1:/c2"},
                              {"XDG_DATA_DIRS", ":/d1::/d2:"},
                              {"XDG_DATA_HOME", "/h"},
                              {"XR_API_LAYER_PATH", "/p1:/p2"}};
    EXPECT_THAT(ExplicitLayerDirectories(full, {}), ElementsAre("/p1", "/p2"));
    EXPECT_THAT(ImplicitLayerDirectories(full, {}),
                ElementsAre("/c1/openxr/1/api_layers/implicit.d", "/c2/openxr/1/api_layers/implicit.d",
                            "/etc/openxr/1/api_layers/implicit.d", "/d1/openxr/1/api_layers/implicit.d",
                            "/d2/openxr/1/api_layers/implicit.d", "/h/openxr/1/api_layers/implicit.d"));
}

}  // namespace
}  // namespace orvanic_xr
