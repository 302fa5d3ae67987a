// Where the pictures lie that a test compares with: one for each runtime, renderer and eye, since they differ in them.
#pragma once

#include <filesystem>
#include <span>
#include <string>

namespace velmoor {

// How an application renders, such as "vulkan-software". Of a GPU, that it is there is all that can be known.
std::string renderer_name(std::span<const std::string> enabled_extensions, bool has_gpu);
bool machine_has_gpu();

struct baseline_key {
    std::string picture;
    std::string runtime;  // the system's name
    std::string renderer;
    std::string eye;
};

// In the directory `baselines` beside the test file `test`. The names are those of the Python package.
std::filesystem::path baseline_path(const std::filesystem::path& test, const baseline_key& key);

}  // namespace velmoor
