// The methods tools/list and tools/call.
#include <exception>
#include <utility>

#include "mcp/server.h"

namespace mcp {
namespace {

json annotations(const tool& declaration) {
    json hints = json::object();
    if (!declaration.title.empty()) hints["title"] = declaration.title;
    hints["readOnlyHint"] = declaration.read_only_hint;
    hints["destructiveHint"] = declaration.destructive_hint;
    hints["idempotentHint"] = declaration.idempotent_hint;
    hints["openWorldHint"] = declaration.open_world_hint;
    return hints;
}

}  // namespace

json to_json(const tool& declaration) {
    json object{
        {"name", declaration.name},
        {"description", declaration.description},
        {"inputSchema", declaration.input_schema},
    };
    if (!declaration.output_schema.empty()) object["outputSchema"] = declaration.output_schema;
    if (declaration.has_annotations) object["annotations"] = annotations(declaration);
    return object;
}

namespace {}  // namespace

json server::parse_arguments(std::string_view text) const {
    try {
        return parse_text(text);
    } catch (const std::exception& e) {
        throw mcp_exception(kInvalidParams, std::string("Invalid JSON arguments: ") + e.what());
    }
}

void server::register_tool(const tool& declaration, tool_handler handler) {
    auto entry = std::make_shared<const registered_tool>(registered_tool{declaration, std::move(handler)});
    const std::lock_guard lock(mutex_);
    tools_[declaration.name] = std::move(entry);
    method_handlers_.try_emplace("tools/list", [this](const json&, const std::string&) { return list_tools(); });
    method_handlers_.try_emplace("tools/call", [this](const json& params, const std::string& session_id) {
        return call_tool(params, session_id);
    });
}

std::vector<tool> server::get_tools() const {
    const std::lock_guard lock(mutex_);
    std::vector<tool> declarations;
    for (const auto& [name, entry] : tools_) declarations.push_back(entry->declaration);
    return declarations;
}

json server::list_tools() const {
    const auto tools = copy_locked(tools_);
    json list = json::array();
    for (const auto& [name, entry] : tools) list.push_back(to_json(entry->declaration));
    return json::object({{"tools", std::move(list)}});
}

json server::call_tool(const json& params, const std::string& session_id) const {
    if (!params.is_object() || !params.contains("name")) {
        throw mcp_exception(kInvalidParams, "Missing 'name' parameter");
    }
    const std::string name = params["name"].get<std::string>();
    const auto entry = find_tool(name);
    if (!entry) throw mcp_exception(kInvalidParams, "Tool not found: " + name);
    const auto given = params.find("arguments");
    json made = json::array();  // not an object: handlers know that as a call without arguments
    if (given != params.end() && given->is_string()) made = parse_arguments(given->get_ref<const std::string&>());
    const json& arguments = given != params.end() && !given->is_string() ? *given : made;
    json result = json::object({{"isError", false}});
    try {
        result["content"] = entry->handler(arguments, session_id);
    } catch (const std::exception& e) {
        result["isError"] = true;
        result["content"] = json::array({{{"type", "text"}, {"text", e.what()}}});
    }
    return result;
}

std::shared_ptr<const server::registered_tool> server::find_tool(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    const auto found = tools_.find(name);
    return found == tools_.end() ? nullptr : found->second;
}

}  // namespace mcp
