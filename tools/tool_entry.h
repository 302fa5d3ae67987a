// How a tool is declared, and what all tools share: the schema, the two arguments by which an agent may say
// why it acts, and the telemetry around each call. A built-in tool is a factory that returns a ToolEntry;
// tools/builtin_tools.cpp lists them in the order of registration.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "mcp/tool.h"
#include "tools/tool_registry.h"

namespace orvanic_xr {

struct ToolEntry {
    mcp::tool tool;
    ToolHandler handler;
    std::function<bool()> predicate;  // may be empty; the tool is skipped if it returns false
};

// Builds a tool with its input schema. Each operation returns the builder, so that a declaration reads as one
// sentence. Parameters stand in the schema in the order in which they are added.
class ToolBuilder {
 public:
    ToolBuilder(std::string name, std::string description);

    ToolBuilder& add_parameter(const std::string& name, const std::string& description, const std::string& type,
                               bool required);
    ToolBuilder& add_string_parameter(const std::string& name, const std::string& description, bool required);
    ToolBuilder& add_number_parameter(const std::string& name, const std::string& description, bool required);
    ToolBuilder& add_boolean_parameter(const std::string& name, const std::string& description, bool required);
    ToolBuilder& add_array_parameter(const std::string& name, const std::string& description,
                                     const std::string& item_type, bool required);
    // A negative bound is left out.
    ToolBuilder& add_bounded_array_parameter(const std::string& name, const std::string& description,
                                             const std::string& item_type, int min_items, int max_items, bool required);
    ToolBuilder& add_object_parameter(const std::string& name, const std::string& description, const json& properties,
                                      bool required);
    // A whole schema, to which the description is added.
    ToolBuilder& add_schema_parameter(const std::string& name, const std::string& description, json schema,
                                      bool required);

    ToolBuilder& set_title(std::string title);
    ToolBuilder& set_read_only_hint(bool value);
    ToolBuilder& set_destructive_hint(bool value);
    ToolBuilder& set_idempotent_hint(bool value);
    ToolBuilder& set_open_world_hint(bool value);
    // The four hints in the order in which they stand on the wire.
    ToolBuilder& set_hints(bool read_only, bool destructive, bool idempotent, bool open_world);

    mcp::tool build() const;

 private:
    ToolBuilder& add_property(const std::string& name, json property, bool required);

    mcp::tool tool_;
    json properties_ = json::object();
    std::vector<std::string> required_;
};

// Why an agent calls: both texts are empty when it did not say.
struct ToolCallIntent {
    std::string reason;     // at most 256 bytes, cut at a character boundary
    std::string sentiment;  // "positive", "neutral", "negative" or empty
};

// Adds the optional `reason` and `sentiment` to the schema of `tool`.
void add_reason_and_sentiment_parameters(mcp::tool& tool);
ToolCallIntent extract_reason_and_sentiment(const json& arguments);

// `handler` with the telemetry of a built-in tool around it. What it throws goes on to the caller, and then no
// finish is told.
ToolHandler wrapWithTelemetry(std::string name, ToolHandler handler);

}  // namespace orvanic_xr
