// The environment in which an application runs with the layer, and on the simulator if it shall.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace velmoor {

using environment = std::map<std::string, std::string, std::less<>>;

// What was built or installed together with this program. Empty where it was not found.
struct own_files {
    std::string layers;         // directory of the explicit layer's manifest
    bool layers_known = false;  // the loader looks there by itself
    std::string simulator;      // the simulator's manifest
    bool automation = false;    // the layer that moves devices on any runtime is there too
};
own_files files_beside_program();

struct launch_options {
    bool simulator = true;                  // in place of the active runtime
    bool own_network = true;                // where the system lets us
    std::string control = {};               // path of the simulator's socket; none if empty
    environment variables{};                // beside this process's
    std::string keeper = "/proc/self/exe";  // the program `velmoor`
};

environment current_environment();

// `base` with the layer switched on, its debug lines too, and on another runtime than the simulator the automation
// layer below it. What the variables say already stays, but for the automation layer's place.
environment launch_environment(environment base, const own_files& files, const launch_options& options);

// "NAME=value", as exec wants it.
std::vector<std::string> entries_of(const environment& variables);

}  // namespace velmoor
