// Pictures in results, as files for whoever can read them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mcp/json.h"

namespace velmoor {

using mcp::json;

// The bytes behind base64; as far as it is such.
std::string decode_base64(std::string_view text);

// Writes each picture of a tool's result into a file of its own in `directory`, and gives their paths. Throws
// std::runtime_error if one can't be written.
std::vector<std::string> save_pictures(const json& result, const std::string& directory, const std::string& tool);

// Likewise for the pictures of an outcome, which gets a text that names the files, or says why there are none.
void name_pictures(json& outcome, const std::string& directory, const std::string& tool);

}  // namespace velmoor
