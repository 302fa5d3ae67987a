// Where the OpenXR loader looks for manifests, in its order. Pure work on the environment: nothing is opened here.
#pragma once

#include <string>
#include <vector>

#include "doctor/environment.h"

namespace orvanic_xr {

// What differs between builds of the loader.
struct LoaderTraits {
    std::vector<std::string> system_directories = {"/etc"};  // beside those of the XDG variables
    std::string architecture;  // as in "active_runtime.x86_64.json"; empty if the loader knows no such names
};

// Of these the loader takes the first that is there. XR_RUNTIME_JSON stands for all of them.
std::vector<std::string> RuntimeManifestPaths(const Environment& environment, const LoaderTraits& traits);

// XR_API_LAYER_PATH replaces the places of explicit layers, and has no say on implicit ones.
std::vector<std::string> ExplicitLayerDirectories(const Environment& environment, const LoaderTraits& traits);
std::vector<std::string> ImplicitLayerDirectories(const Environment& environment, const LoaderTraits& traits);

}  // namespace orvanic_xr
