#include "tools/tool_entry.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/fakes/log_capture.h"
#include "tools/argument_check.h"

namespace orvanic_xr {
namespace {

using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

TEST(ToolBuilder, WritesTheSchemaInWireOrder) {
    mcp::tool tool = ToolBuilder("some_tool", "Does something.")
                         .add_string_parameter("text", "A text.", true)
                         .add_number_parameter("number", "A number.", false)
                         .add_boolean_parameter("flag", "A flag.", false)
                         .add_array_parameter("names", "Names.", "string", true)
                         .add_bounded_array_parameter("vector", "A vector.", "number", 3, 3, false)
                         .add_bounded_array_parameter("any", "Any.", "number", -1, 0, false)
                         .add_object_parameter("record", "A record.", json{{"x", {{"type", "number"}}}}, false)
                         .add_schema_parameter("operand", "Either.",
                                               json{{"oneOf", {{{"type", "number"}}, {{"type", "array"}}}}}, true)
                         .build();
    add_reason_and_sentiment_parameters(tool);
    EXPECT_EQ(
        mcp::dump_json(tool.input_schema),
        R"({"properties":{"text":{"type":"string","description":"A text."},)"
        R"("number":{"type":"number","description":"A number."},)"
        R"("flag":{"type":"boolean","description":"A flag."},)"
        R"("names":{"type":"array","description":"Names.","items":{"type":"string"}},)"
        R"("vector":{"type":"array","description":"A vector.","items":{"type":"number"},"minItems":3,"maxItems":3},)"
        R"("any":{"type":"array","description":"Any.","items":{"type":"number"},"maxItems":0},)"
        R"("record":{"type":"object","description":"A record.","properties":{"x":{"type":"number"}}},)"
        R"("operand":{"oneOf":[{"type":"number"},{"type":"array"}],"description":"Either."},)"
        R"("reason":{"type":"string","description":"Why you are calling this tool — describe your intent or what )"
        R"(step this serves in your plan"},)"
        R"("sentiment":{"type":"string","description":"Your assessment of current task progress.",)"
        R"("enum":["positive","neutral","negative"]}},)"
        R"("type":"object","additionalProperties":false,"required":["text","names","operand"]})");
    EXPECT_EQ(mcp::dump_json(ToolBuilder("t", "d").build().input_schema),
              R"({"properties":{},"type":"object","additionalProperties":false})");
}

TEST(ReasonAndSentiment, AreReadFromAnyArguments) {
    const std::string two_bytes = std::string(255, 'a') + "\u00e9" + "rest";
    const std::string fits = std::string(254, 'a') + "\u00e9";
    const std::string no_character(300, '\x80');
    struct Row {
        const char* name;
        json arguments;
        std::string reason;
        std::string sentiment;
    };
    const std::vector<Row> rows = {
        {"both", {{"reason", "to see"}, {"sentiment", "neutral"}}, "to see", "neutral"},
        {"an array", json::array(), "", ""},
        {"other kinds", {{"reason", 5}, {"sentiment", json::array({"positive"})}}, "", ""},
        {"another case", {{"sentiment", "Positive"}}, "", ""},
        {"a character across the limit", {{"reason", two_bytes}}, std::string(255, 'a'), ""},
        {"a character up to the limit", {{"reason", fits}, {"sentiment", "positive"}}, fits, "positive"},
        {"no character at all", {{"reason", no_character}, {"sentiment", "negative"}}, "", "negative"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const ToolCallIntent intent = extract_reason_and_sentiment(row.arguments);
        EXPECT_EQ(intent.reason, row.reason);
        EXPECT_EQ(intent.sentiment, row.sentiment);
    }
}

TEST(WarnOfUnfitArguments, SaysWhatWillNotBeUsedAndPassesAllOn) {
    LogCapture log;
    ToolBuilder builder("some_tool", "");
    builder.add_string_parameter("text", "", false)
        .add_number_parameter("number", "", false)
        .add_boolean_parameter("flag", "", false)
        .add_bounded_array_parameter("three", "", "number", 3, 3, false)
        .add_array_parameter("list", "", "number", false)
        .add_schema_parameter("choice", "", {{"oneOf", json::array()}}, false);
    json passed;
    const ToolHandler checked = warn_of_unfit_arguments(builder.build(), [&](const json& arguments, const auto&) {
        passed = arguments;
        return json();
    });
    json arguments = mcp::parse_json(
        R"({"text": "a", "number": 1.5, "flag": false, "three": [1, 2, 3], "list": [1], "choice": true})");
    for (const json& fit : {arguments, json(nullptr), json::array({1}), json{{"three", nullptr}}}) checked(fit, "");
    EXPECT_THAT(log.take(), IsEmpty());
    arguments =
        mcp::parse_json(R"({"text": 1, "number": "1", "flag": 1, "three": [1, 2], "list": "[1]", "posi\ntion": 1})");
    checked(arguments, "");
    EXPECT_EQ(passed, arguments);
    EXPECT_THAT(log.messages("WARNING"),
                UnorderedElementsAre("some_tool: argument \"text\" does not fit, the schema says: string",
                                     "some_tool: argument \"number\" does not fit, the schema says: number",
                                     "some_tool: argument \"flag\" does not fit, the schema says: boolean",
                                     "some_tool: argument \"three\" does not fit, the schema says: array of 3",
                                     "some_tool: argument \"list\" does not fit, the schema says: array",
                                     "some_tool: no parameter is called \"posi\\ntion\": ignored"));
    log.take();
    checked({{"three", {1, "2", 3}}}, "");
    EXPECT_THAT(
        log.messages("WARNING"),
        UnorderedElementsAre("some_tool: argument \"three\" does not fit, the schema says: array of 3, each a number"));
    log.take();
    for (int i = 0; i < 100; ++i) arguments["a" + std::to_string(i)] = i;
    checked(arguments, "");
    EXPECT_THAT(log.lines(), SizeIs(8)) << "a caller may send thousands";
}

}  // namespace
}  // namespace orvanic_xr
