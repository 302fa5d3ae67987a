// Asks the real loader, in a child process. No instance is created, so no layer starts its server.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "doctor/search_paths.h"

namespace orvanic_xr {

struct LoaderAnswer {
    std::string problem;           // why there is no loader; empty if there is one
    std::string file;              // its real path
    std::string version;           // as its file's name tells, or empty
    LoaderTraits traits;           // as its file and place tell
    std::set<std::string> layers;  // names of the layers that it lists, explicit and implicit
    std::string runtime_problem;   // why the runtime doesn't load; empty if it does
    std::set<std::string> extensions;
};

LoaderAnswer AskLoader();

// Loads the library of a layer in a child process and has it negotiate under `layer_name`, as the loader would, which
// starts nothing. Why that fails, or nothing.
std::string LayerLibraryProblem(const std::string& library, const std::string& layer_name);

}  // namespace orvanic_xr
