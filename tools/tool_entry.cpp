#include "tools/tool_entry.h"

#include <cstddef>
#include <utility>

#include "diagnostics/clock.h"
#include "diagnostics/telemetry.h"

namespace orvanic_xr {
namespace {

constexpr char kBuiltinCategory[] = "openxr_builtin";
constexpr std::size_t kReasonLimit = 256;

json typed_property(const std::string& type, const std::string& description) {
    json property = json::object();
    property["type"] = type;
    property["description"] = description;
    return property;
}

json array_property(const std::string& description, const std::string& item_type) {
    json property = typed_property("array", description);
    property["items"]["type"] = item_type;
    return property;
}

// The longest beginning of `text` that has at most `limit` bytes and ends between two UTF-8 characters.
std::string cut_at_character(const std::string& text, std::size_t limit) {
    if (text.size() <= limit) return text;
    const auto continues = [&](std::size_t i) { return (static_cast<unsigned char>(text[i]) & 0xC0) == 0x80; };
    while (limit > 0 && continues(limit)) --limit;
    return text.substr(0, limit);
}

const std::string* text_argument(const json& arguments, const char* name) {
    const auto found = arguments.find(name);
    return found == arguments.end() ? nullptr : found->get_ptr<const json::string_t*>();
}

}  // namespace

ToolBuilder::ToolBuilder(std::string name, std::string description) {
    tool_.name = std::move(name);
    tool_.description = std::move(description);
}

ToolBuilder& ToolBuilder::add_parameter(const std::string& name, const std::string& description,
                                        const std::string& type, bool required) {
    return add_property(name, typed_property(type, description), required);
}

ToolBuilder& ToolBuilder::add_string_parameter(const std::string& name, const std::string& description, bool required) {
    return add_parameter(name, description, "string", required);
}

ToolBuilder& ToolBuilder::add_number_parameter(const std::string& name, const std::string& description, bool required) {
    return add_parameter(name, description, "number", required);
}

ToolBuilder& ToolBuilder::add_boolean_parameter(const std::string& name, const std::string& description,
                                                bool required) {
    return add_parameter(name, description, "boolean", required);
}

ToolBuilder& ToolBuilder::add_array_parameter(const std::string& name, const std::string& description,
                                              const std::string& item_type, bool required) {
    return add_property(name, array_property(description, item_type), required);
}

ToolBuilder& ToolBuilder::add_bounded_array_parameter(const std::string& name, const std::string& description,
                                                      const std::string& item_type, int min_items, int max_items,
                                                      bool required) {
    json property = array_property(description, item_type);
    if (min_items >= 0) property["minItems"] = min_items;
    if (max_items >= 0) property["maxItems"] = max_items;
    return add_property(name, std::move(property), required);
}

ToolBuilder& ToolBuilder::add_object_parameter(const std::string& name, const std::string& description,
                                               const json& properties, bool required) {
    json property = typed_property("object", description);
    property["properties"] = properties;
    return add_property(name, std::move(property), required);
}

ToolBuilder& ToolBuilder::add_schema_parameter(const std::string& name, const std::string& description, json schema,
                                               bool required) {
    schema["description"] = description;
    return add_property(name, std::move(schema), required);
}

ToolBuilder& ToolBuilder::set_title(std::string title) {
    tool_.title = std::move(title);
    tool_.has_annotations = true;
    return *this;
}

ToolBuilder& ToolBuilder::set_read_only_hint(bool value) {
    tool_.read_only_hint = value;
    tool_.has_annotations = true;
    return *this;
}

ToolBuilder& ToolBuilder::set_destructive_hint(bool value) {
    tool_.destructive_hint = value;
    tool_.has_annotations = true;
    return *this;
}

ToolBuilder& ToolBuilder::set_idempotent_hint(bool value) {
    tool_.idempotent_hint = value;
    tool_.has_annotations = true;
    return *this;
}

ToolBuilder& ToolBuilder::set_open_world_hint(bool value) {
    tool_.open_world_hint = value;
    tool_.has_annotations = true;
    return *this;
}

ToolBuilder& ToolBuilder::set_hints(bool read_only, bool destructive, bool idempotent, bool open_world) {
    return set_read_only_hint(read_only)
        .set_destructive_hint(destructive)
        .set_idempotent_hint(idempotent)
        .set_open_world_hint(open_world);
}

mcp::tool ToolBuilder::build() const {
    mcp::tool tool = tool_;
    tool.input_schema = json::object();
    tool.input_schema["properties"] = properties_;
    tool.input_schema["type"] = "object";
    tool.input_schema["additionalProperties"] = false;
    if (!required_.empty()) tool.input_schema["required"] = required_;
    return tool;
}

ToolBuilder& ToolBuilder::add_property(const std::string& name, json property, bool required) {
    properties_[name] = std::move(property);
    if (required) required_.push_back(name);
    return *this;
}

void add_reason_and_sentiment_parameters(mcp::tool& tool) {
    json& properties = tool.input_schema["properties"];
    if (properties.is_null()) properties = json::object();
    properties["reason"] = typed_property(
        "string", "Why you are calling this tool — describe your intent or what step this serves in your plan");
    json sentiment = typed_property("string", "Your assessment of current task progress.");
    sentiment["enum"] = json::array({"positive", "neutral", "negative"});
    properties["sentiment"] = std::move(sentiment);
}

ToolCallIntent extract_reason_and_sentiment(const json& arguments) {
    ToolCallIntent intent;
    if (const std::string* reason = text_argument(arguments, "reason")) {
        intent.reason = cut_at_character(*reason, kReasonLimit);
    }
    const std::string* sentiment = text_argument(arguments, "sentiment");
    if (sentiment && (*sentiment == "positive" || *sentiment == "neutral" || *sentiment == "negative")) {
        intent.sentiment = *sentiment;
    }
    return intent;
}

ToolHandler wrapWithTelemetry(std::string name, ToolHandler handler) {
    return
        [name = std::move(name), handler = std::move(handler)](const json& arguments, const std::string& session_id) {
            const ToolCallIntent intent = extract_reason_and_sentiment(arguments);
            Telemetry::instance().tool_start(name, kBuiltinCategory, intent.reason, intent.sentiment);
            const std::int64_t start_ns = MonotonicNanoseconds();
            json content = handler(arguments, session_id);
            const std::int64_t latency_ms = (MonotonicNanoseconds() - start_ns) / 1'000'000;
            Telemetry::instance().tool_finish(name, latency_ms, true, {}, kBuiltinCategory);
            return content;
        };
}

}  // namespace orvanic_xr
