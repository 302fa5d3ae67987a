// Manifests of layers and runtimes, read as the loader reads them.
#pragma once

#include <string>
#include <string_view>

namespace orvanic_xr {

struct RuntimeManifest {
    std::string path;
    std::string name;     // may be empty
    std::string library;  // a path, or a bare name for the dynamic linker's search
    std::string problem;  // why the loader refuses the manifest; empty if it takes it
};

struct LayerManifest {
    std::string path;
    bool implicit = false;
    std::string name;
    std::string library;              // as above
    std::string disable_environment;  // only of implicit layers
    std::string enable_environment;   // likewise; may be empty
    std::string problem;              // as above
};

RuntimeManifest ReadRuntimeManifest(const std::string& path, std::string_view text);
LayerManifest ReadLayerManifest(const std::string& path, bool implicit, std::string_view text);

}  // namespace orvanic_xr
