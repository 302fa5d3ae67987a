#include "doctor/examination.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

#include "diagnostics/log_file_sink.h"
#include "doctor/joined.h"
#include "doctor/layer_check.h"
#include "doctor/loader_probe.h"
#include "doctor/manifest.h"
#include "doctor/port_check.h"
#include "doctor/search_paths.h"
#include "doctor/wanted_extensions.h"
#include "doctor/whole_file.h"
#include "mcp/server_host.h"

namespace orvanic_xr {
namespace {

namespace fs = std::filesystem;

bool IsThere(const fs::path& path) {
    std::error_code ignored;
    return fs::exists(path, ignored);
}

// What was built or installed together with the doctor, by its path relative to the doctor's directory.
std::optional<fs::path> Beside(const std::vector<const char*>& candidates) {
    std::error_code unreadable;
    const fs::path own = fs::read_symlink("/proc/self/exe", unreadable).parent_path();
    for (const char* candidate : candidates) {
        const fs::path path = (own / candidate).lexically_normal();
        if (IsThere(path)) return path;
    }
    return std::nullopt;
}

Finding LoaderFinding(const LoaderAnswer& loader) {
    if (!loader.problem.empty()) {
        return {Mark::Bad, "loader", loader.problem, "install the OpenXR loader (on Debian: libopenxr-loader1)"};
    }
    return {Mark::Ok, "loader", (loader.version.empty() ? "" : loader.version + ", ") + loader.file, {}};
}

std::string AdviceForRuntime() {
    const auto simulator = Beside({"../lib/velmoor_simulator.json", "../share/velmoor/velmoor_simulator.json"});
    const std::string start = "make your headset's runtime the active one, or ";
    return start + (simulator ? "export XR_RUNTIME_JSON=" + simulator->string() : "set XR_RUNTIME_JSON");
}

Finding RuntimeFinding(const Environment& environment, const LoaderAnswer& loader) {
    const std::vector<std::string> paths = RuntimeManifestPaths(environment, loader.traits);
    const bool chosen = ValueOf(environment, "XR_RUNTIME_JSON").has_value();
    for (const std::string& path : paths) {
        if (!IsThere(path)) continue;
        const RuntimeManifest manifest = ReadRuntimeManifest(path, WholeFile(path));
        const std::string which =
            (manifest.name.empty() ? "" : manifest.name + ", ") + path + (chosen ? " (by XR_RUNTIME_JSON)" : "");
        if (!manifest.problem.empty()) {
            return {Mark::Bad, "runtime", which + ": " + manifest.problem, AdviceForRuntime()};
        }
        if (!loader.runtime_problem.empty()) {
            return {Mark::Bad, "runtime", which + " does not load: " + loader.runtime_problem, AdviceForRuntime()};
        }
        return {Mark::Ok, "runtime", which, {}};
    }
    return {Mark::Bad, "runtime", "none is active; there is no " + Joined(paths), AdviceForRuntime()};
}

std::string AdviceToInstall() {
    const auto manifests = Beside({"../layers", "../share/openxr/1/api_layers/explicit.d"});
    return manifests ? "export XR_API_LAYER_PATH=" + manifests->string()
                     : "install it, or name its manifest's directory in XR_API_LAYER_PATH";
}

Findings LayerFindings(const Environment& environment, const LoaderAnswer& loader) {
    LayerSituation situation;
    situation.environment = environment;
    situation.directories = ExplicitLayerDirectories(environment, loader.traits);
    situation.manifests = FindLayerManifests(situation.directories, false);
    const std::vector<std::string> implicit = ImplicitLayerDirectories(environment, loader.traits);
    for (LayerManifest& manifest : FindLayerManifests(implicit, true))
        situation.manifests.push_back(std::move(manifest));
    situation.directories.insert(situation.directories.end(), implicit.begin(), implicit.end());
    if (loader.problem.empty()) situation.listed = loader.layers;
    situation.advice_to_install = AdviceToInstall();
    return JudgeLayer(
        situation, [](const LayerManifest& manifest) { return LayerLibraryProblem(manifest.library, manifest.name); });
}

AutomationLayer LookForAutomation(const Environment& environment, const LoaderAnswer& loader) {
    if (!loader.layers.contains(kAutomationLayer)) return AutomationLayer::kMissing;
    const std::vector<std::string> names = SplitList(ValueOf(environment, "XR_ENABLE_API_LAYERS").value_or(""));
    const bool is_on = std::find(names.begin(), names.end(), kAutomationLayer) != names.end();
    return is_on ? AutomationLayer::kOn : AutomationLayer::kInstalled;
}

// Looks, and creates nothing: the layer makes the directories that are wanting.
Finding LogFinding() {
    const std::string root = LogRoot();
    fs::path there = root;
    while (!IsThere(there) && there.has_relative_path()) there = there.parent_path();
    std::error_code ignored;
    if (fs::is_directory(there, ignored) && access(there.c_str(), W_OK | X_OK) == 0) {
        return {Mark::Ok, "logs", root, "each run of an application writes api_layer_<time>_<pid>/api_layer.log there"};
    }
    return {Mark::Warn, "logs", root + " can't be written to: there will be no log file",
            "make " + there.string() + " a writable directory, or point XDG_STATE_HOME elsewhere"};
}

void Append(Findings& all, Findings more) {
    for (Finding& finding : more) all.push_back(std::move(finding));
}

}  // namespace

Findings Examine(const Environment& environment) {
    const LoaderAnswer loader = AskLoader();
    Findings findings = {LoaderFinding(loader), RuntimeFinding(environment, loader)};
    Append(findings, LayerFindings(environment, loader));
    if (loader.problem.empty() && loader.runtime_problem.empty()) {
        Append(findings, JudgeExtensions(loader.extensions, LookForAutomation(environment, loader)));
    }
    findings.push_back(JudgePort(LookAtPort(kMcpServerPort)));
    findings.push_back(LogFinding());
    return findings;
}

}  // namespace orvanic_xr
