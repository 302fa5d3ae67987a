// Whether the layer is there, whole, and switched on. The verdicts are pure work on what was found.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "doctor/environment.h"
#include "doctor/finding.h"
#include "doctor/manifest.h"

namespace orvanic_xr {

inline constexpr const char* kLayerNames[] = {"XR_APILAYER_KESTX_velmoor", "XR_APILAYER_KESTX_orvanic"};

// Of its own, below this one.
inline constexpr const char* kAutomationLayer = "XR_APILAYER_VELMOOR_automation";

struct LayerSituation {
    Environment environment;
    std::vector<LayerManifest> manifests;         // of this layer, also such as are broken; in the loader's order
    std::vector<std::string> directories;         // where they were looked for
    std::optional<std::set<std::string>> listed;  // names of all layers that the loader lists, if it could be asked
    std::string advice_to_install;
};

// The manifests of this layer in `directories`. A broken one is taken for ours by its file's name.
std::vector<LayerManifest> FindLayerManifests(const std::vector<std::string>& directories, bool implicit);

// The automation layer has to be named behind this one: nothing where it is, or is not named at all.
Findings JudgeOrder(const Environment& environment);

// `library_problem` tells why the library of a manifest can't be used, or nothing.
Findings JudgeLayer(const LayerSituation& situation,
                    const std::function<std::string(const LayerManifest&)>& library_problem);

}  // namespace orvanic_xr
