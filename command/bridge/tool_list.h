// Which tools a client is told of: the layer's own, whether an application is there or not, the bridge's, and those
// that applications add.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "mcp/json.h"

namespace velmoor {

using mcp::json;

// The layer's own tools as they declare themselves, ordered by their names.
const std::vector<json>& builtin_declarations();
bool is_builtin(const std::string& tool);

// Those of `tools` that are not built in: an application's own.
std::vector<json> own_tools_of_application(const std::vector<json>& tools);

// Whether a tool has a parameter `app` of its own. Otherwise that argument names the application, and goes no further.
bool has_own_app_parameter(const json& declaration);

// Gives it one that names the application, unless it has one.
void add_app_parameter(json& declaration);

// The text of the whole list. Of two tools of one name, the first counts: the bridge's, then the layer's, then those of
// the applications in their order.
std::string merged_list(const std::vector<json>& of_bridge, const std::vector<json>& of_applications);

// The applications' tools as they were last seen, kept in a file between one run and the next. What can't be read or
// written is left out.
std::vector<json> load_tools(const std::string& file);
void save_tools(const std::string& file, const std::vector<json>& tools);
// Below the user's cache directory; empty if there is none.
std::string default_tools_file();

}  // namespace velmoor
