#include "command/launch/launch_environment.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "command/applications/finder.h"

namespace velmoor {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLayer = "XR_APILAYER_KESTX_velmoor";
constexpr const char* kAutomationLayer = "XR_APILAYER_VELMOOR_automation";

std::string beside(std::initializer_list<const char*> candidates) {
    std::error_code unreadable;
    const fs::path own = fs::read_symlink("/proc/self/exe", unreadable).parent_path();
    for (const char* candidate : candidates) {
        const fs::path path = (own / candidate).lexically_normal();
        if (fs::exists(path, unreadable)) return path.string();
    }
    return {};
}

std::vector<std::string> parts_of(const std::string& list) {
    std::vector<std::string> parts;
    std::istringstream stream(list);
    for (std::string part; std::getline(stream, part, ':');) parts.push_back(part);
    return parts;
}

// Adds `part` to a list that is separated by ":", unless it is in there.
void add_to_list(std::string& list, const std::string& part) {
    const auto parts = parts_of(list);
    if (std::find(parts.begin(), parts.end(), part) != parts.end()) return;
    if (!list.empty()) list += ':';
    list += part;
}

void take_from_list(std::string& list, const std::string& part) {
    std::string rest;
    for (const std::string& other : parts_of(list)) {
        if (other != part) rest += (rest.empty() ? "" : ":") + other;
    }
    list = rest;
}

// Moves and holds then go by that clock as well.
bool has_own_clock(const environment& variables) {
    const auto clock = variables.find("VELMOOR_SIM_CLOCK");
    return clock != variables.end() && (clock->second == "fixed" || clock->second == "stepped");
}

}  // namespace

own_files files_beside_program() {
    own_files files;
    files.layers = beside({"../layers", "../share/openxr/1/api_layers/explicit.d"});
    files.layers_known = files.layers.starts_with("/usr/share/") || files.layers.starts_with("/usr/local/share/");
    std::error_code unreadable;
    files.automation = fs::exists(fs::path(files.layers) / "XrApiLayer_VELMOOR_automation.json", unreadable);
    files.simulator = beside({"../lib/velmoor_simulator.json", "../share/velmoor/velmoor_simulator.json"});
    return files;
}

environment current_environment() {
    environment variables;
    for (char** entry = environ; entry && *entry; ++entry) {
        const std::string_view text = *entry;
        const std::size_t equals = text.find('=');
        if (equals != std::string_view::npos) variables.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
    return variables;
}

environment launch_environment(environment base, const own_files& files, const launch_options& options) {
    std::string& enabled = base["XR_ENABLE_API_LAYERS"];
    add_to_list(enabled, kLayer);
    const auto left_out = base.find("VELMOOR_SIM_WITHOUT");
    const bool lacks_automation = !options.simulator || (left_out != base.end() && !left_out->second.empty());
    if (lacks_automation && files.automation) {
        // The first name is nearest to the application.
        take_from_list(enabled, kAutomationLayer);
        add_to_list(enabled, kAutomationLayer);
    }
    // The variable stands for all places in which the loader would look: it is set only where it is needed.
    if (!files.layers.empty() && (!files.layers_known || base.contains("XR_API_LAYER_PATH"))) {
        add_to_list(base["XR_API_LAYER_PATH"], files.layers);
    }
    if (options.simulator && !files.simulator.empty()) base["XR_RUNTIME_JSON"] = files.simulator;
    if (options.simulator && !options.control.empty()) base["VELMOOR_SIM_CONTROL"] = options.control;
    // Who controls it may hold it.
    if (options.simulator && (has_own_clock(base) || !options.control.empty()))
        base.emplace("ORVANICXR_FRAME_CLOCK", "1");
    base.emplace("ORVANICXR_VERBOSE", "1");
    base.erase(kRunVariable);
    base.emplace(kRunVariable, "1");
    return base;
}

std::vector<std::string> entries_of(const environment& variables) {
    std::vector<std::string> entries;
    for (const auto& [name, value] : variables) entries.emplace_back(name).append("=").append(value);
    return entries;
}

}  // namespace velmoor
