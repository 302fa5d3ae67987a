#include "doctor/layer_check.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <utility>

#include "doctor/joined.h"
#include "doctor/whole_file.h"

namespace orvanic_xr {
namespace {

constexpr char kEnableVariable[] = "XR_ENABLE_API_LAYERS";

bool IsOurName(std::string_view name) {
    return std::find(std::begin(kLayerNames), std::end(kLayerNames), name) != std::end(kLayerNames);
}

bool IsOurs(const LayerManifest& manifest) {
    if (!manifest.name.empty()) return IsOurName(manifest.name);
    return manifest.path.find("KESTX_velmoor") != std::string::npos ||
           manifest.path.find("KESTX_orvanic") != std::string::npos;
}

// How a manifest stands in this environment.
struct Switch {
    bool on;
    std::string text;
    std::string advice;
};

Switch ImplicitSwitch(const LayerManifest& manifest, const Environment& environment) {
    const std::string& disable = manifest.disable_environment;
    const std::string& enable = manifest.enable_environment;
    if (environment.contains(disable)) {
        return {false, "installed for each application of this user, but " + disable + " is set", "unset " + disable};
    }
    if (!enable.empty() && !environment.contains(enable)) {
        return {false, "installed for this user, but off until " + enable + " is set", "export " + enable + "=1"};
    }
    return {true, "on for each application " + (enable.empty() ? "of this user" : "started with " + enable),
            disable + "=1 takes it off for one"};
}

Switch ExplicitSwitch(const LayerManifest& manifest, const Environment& environment) {
    const std::string list = ValueOf(environment, kEnableVariable).value_or("");
    const std::vector<std::string> names = SplitList(list);
    if (std::count(names.begin(), names.end(), manifest.name) > 0) {
        return {true, "on by " + std::string(kEnableVariable),
                "unset " + std::string(kEnableVariable) + " takes it off"};
    }
    return {false, "installed, but not switched on",
            "export " + std::string(kEnableVariable) + "=" + (list.empty() ? "" : list + ":") + manifest.name};
}

// The roots of the searched directories, each once: "/etc/xdg, /usr/share".
std::string Roots(const std::vector<std::string>& directories) {
    std::vector<std::string> roots;
    for (const std::string& directory : directories) {
        std::string root = directory.substr(0, directory.find("/openxr/1/api_layers"));
        if (std::find(roots.begin(), roots.end(), root) == roots.end()) roots.push_back(std::move(root));
    }
    return Joined(roots);
}

Finding ManifestFinding(const LayerManifest& manifest, const std::string& problem) {
    const std::string which = manifest.path + (manifest.implicit ? " (implicit)" : " (explicit)");
    if (problem.empty()) return {Mark::Ok, "manifest", which, {}};
    return {Mark::Warn, "manifest", which + ": " + problem, "install the layer anew, or remove this manifest"};
}

// The loader takes the variable at its word: a name that it can't find among the explicit layers fails the
// application's xrCreateInstance. Of others' layers only the loader's list is known.
Findings NamedInVain(const std::vector<LayerManifest>& usable, const LayerSituation& situation) {
    Findings findings;
    for (const std::string& name : SplitList(ValueOf(situation.environment, kEnableVariable).value_or(""))) {
        const bool ours = IsOurName(name);
        const auto offers = [&](const LayerManifest& m) { return !m.implicit && m.name == name; };
        const bool found = ours ? std::any_of(usable.begin(), usable.end(), offers)
                                : !situation.listed || situation.listed->contains(name);
        if (found) continue;
        findings.push_back(
            {Mark::Bad, "layer",
             std::string(kEnableVariable) + " names " + name + ", which no manifest offers: applications fail to start",
             (ours ? situation.advice_to_install : "install that layer") + ", or take the name out"});
    }
    return findings;
}

// The first that is on speaks for all. Where none is, what is wanting is told of an implicit one, if there is one: it
// was put there so that nobody has to name the layer.
Finding SwitchFinding(const std::vector<LayerManifest>& usable, const LayerSituation& situation) {
    std::vector<Switch> switches;
    for (const LayerManifest& manifest : usable) {
        Switch state = manifest.implicit ? ImplicitSwitch(manifest, situation.environment)
                                         : ExplicitSwitch(manifest, situation.environment);
        if (state.on && situation.listed && !situation.listed->contains(manifest.name)) {
            state = {false, "switched on, but the loader does not list " + manifest.name,
                     "start the application with XR_LOADER_DEBUG=all, which tells why"};
        }
        switches.push_back(std::move(state));
    }
    const auto on = std::find_if(switches.begin(), switches.end(), [](const Switch& s) { return s.on; });
    const auto implicit = std::find_if(usable.begin(), usable.end(), [](const LayerManifest& m) { return m.implicit; });
    const auto chosen = implicit != usable.end() ? implicit - usable.begin() : 0;
    const Switch& told = on != switches.end() ? *on : switches[static_cast<std::size_t>(chosen)];
    return {told.on ? Mark::Ok : Mark::Bad, "layer", told.text, told.advice};
}

}  // namespace

std::vector<LayerManifest> FindLayerManifests(const std::vector<std::string>& directories, bool implicit) {
    std::vector<LayerManifest> found;
    for (const std::string& directory : directories) {
        std::error_code no_directory;
        std::vector<std::filesystem::path> paths;
        for (const auto& entry : std::filesystem::directory_iterator(directory, no_directory)) {
            if (entry.path().extension() == ".json") paths.push_back(entry.path());
        }
        std::sort(paths.begin(), paths.end());
        for (const std::filesystem::path& path : paths) {
            LayerManifest manifest = ReadLayerManifest(path, implicit, WholeFile(path));
            if (IsOurs(manifest)) found.push_back(std::move(manifest));
        }
    }
    return found;
}

Findings JudgeOrder(const Environment& environment) {
    const std::vector<std::string> names = SplitList(ValueOf(environment, kEnableVariable).value_or(""));
    const auto automation = std::find(names.begin(), names.end(), kAutomationLayer);
    // An implicit layer of ours is above all explicit ones.
    if (std::none_of(automation, names.end(), IsOurName)) return {};
    return {{Mark::Bad, "layer",
             std::string(kEnableVariable) + " names " + kAutomationLayer +
                 " before this layer, which then sees nothing of it",
             "export " + std::string(kEnableVariable) + "=" + kLayerNames[0] + ":" + kAutomationLayer}};
}

Findings JudgeLayer(const LayerSituation& situation,
                    const std::function<std::string(const LayerManifest&)>& library_problem) {
    Findings findings;
    std::vector<LayerManifest> usable;
    for (const LayerManifest& manifest : situation.manifests) {
        const std::string problem = manifest.problem.empty() ? library_problem(manifest) : manifest.problem;
        findings.push_back(ManifestFinding(manifest, problem));
        if (problem.empty()) usable.push_back(manifest);
    }
    // Advice names the layer by its first name.
    std::stable_partition(usable.begin(), usable.end(),
                          [](const LayerManifest& m) { return m.name == kLayerNames[0]; });
    const Findings named_in_vain = NamedInVain(usable, situation);
    findings.insert(findings.end(), named_in_vain.begin(), named_in_vain.end());
    const Findings order = JudgeOrder(situation.environment);
    findings.insert(findings.end(), order.begin(), order.end());
    if (!usable.empty()) {
        findings.push_back(SwitchFinding(usable, situation));
    } else {
        const std::string text = situation.manifests.empty() ? "not found below " + Roots(situation.directories)
                                                             : "none of its manifests can be used";
        findings.push_back({Mark::Bad, "layer", text, situation.advice_to_install});
    }
    return findings;
}

}  // namespace orvanic_xr
