#include "command/bridge/tool_list.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "mcp/tool.h"
#include "tools/builtin_tools.h"

namespace velmoor {
namespace {

std::string name_of(const json& declaration) {
    const json name = declaration.is_object() ? declaration.value("name", json()) : json();
    return name.is_string() ? name.get<std::string>() : std::string();
}

}  // namespace

const std::vector<json>& builtin_declarations() {
    static const std::vector<json> declarations = [] {
        std::vector<json> made;
        for (const mcp::tool& each : orvanic_xr::builtin_tool_declarations()) made.push_back(mcp::to_json(each));
        std::sort(made.begin(), made.end(), [](const json& a, const json& b) { return name_of(a) < name_of(b); });
        return made;
    }();
    return declarations;
}

bool is_builtin(const std::string& tool) {
    static const std::set<std::string> names = [] {
        std::set<std::string> made;
        for (const json& each : builtin_declarations()) made.insert(name_of(each));
        return made;
    }();
    return names.contains(tool);
}

std::vector<json> own_tools_of_application(const std::vector<json>& tools) {
    std::vector<json> own;
    for (const json& each : tools) {
        const std::string name = name_of(each);
        if (!name.empty() && !is_builtin(name)) own.push_back(each);
    }
    return own;
}

bool has_own_app_parameter(const json& declaration) {
    const auto schema = declaration.find("inputSchema");
    if (schema == declaration.end() || !schema->is_object()) return false;
    const auto properties = schema->find("properties");
    return properties != schema->end() && properties->is_object() && properties->contains("app");
}

void add_app_parameter(json& declaration) {
    if (has_own_app_parameter(declaration)) return;
    json& properties = declaration["inputSchema"]["properties"];
    if (!properties.is_object()) properties = json::object();
    properties["app"] = {{"type", "string"}, {"description", "Name or pid of the application, where several run"}};
}

std::string merged_list(const std::vector<json>& of_bridge, const std::vector<json>& of_applications) {
    json list = json::array();
    std::set<std::string> names;
    const auto add = [&](const json& declaration, bool goes_to_application) {
        if (!names.insert(name_of(declaration)).second) return;
        list.push_back(declaration);
        if (goes_to_application) add_app_parameter(list.back());
    };
    for (const json& each : of_bridge) add(each, false);
    for (const json& each : builtin_declarations()) add(each, true);
    for (const json& each : of_applications) add(each, true);
    return mcp::dump_json(list);
}

std::vector<json> load_tools(const std::string& file) {
    std::vector<json> tools;
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    if (text.empty()) return tools;
    try {
        const json kept = mcp::parse_json(text);
        for (const json& each : kept.at("tools")) {
            if (!name_of(each).empty() && !is_builtin(name_of(each))) tools.push_back(each);
        }
    } catch (const std::exception&) {
        // Somebody has spoilt it; it is written anew with the next application.
    }
    return tools;
}

void save_tools(const std::string& file, const std::vector<json>& tools) {
    if (file.empty()) return;
    namespace fs = std::filesystem;
    std::error_code error;
    fs::create_directories(fs::path(file).parent_path(), error);
    // Several bridges may write at the same time: each puts a whole file in its place.
    const std::string draft = file + "." + std::to_string(getpid());
    {
        std::ofstream stream(draft, std::ios::binary);
        stream << mcp::dump_json({{"tools", tools}}) << "\n";
        if (!stream) return;
    }
    fs::rename(draft, file, error);
    if (error) fs::remove(draft, error);
}

std::string default_tools_file() {
    const char* const cache = std::getenv("XDG_CACHE_HOME");
    if (cache && cache[0] == '/') return std::string(cache) + "/velmoor/tools.json";
    const char* const home = std::getenv("HOME");
    return home && *home ? std::string(home) + "/.cache/velmoor/tools.json" : std::string();
}

}  // namespace velmoor
