// What a recording holds, and what is read of a damaged one.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "command/recording/recorder.h"
#include "command/recording/recording.h"
#include "tests/fakes/scratch.h"

namespace velmoor {
namespace {

void pass(recorder& through, const json& outcome) {
    through.watched({.name = "t", .arguments = {{"a", 1}}, .done = [](json&&) {}, .report = nullptr})
        .done(json(outcome));
}

TEST(Recording, IsReadAsItWasWrittenUpToACutLine) {
    const orvanic_xr::ScratchDirectory scratch;
    const std::string directory = scratch.path() + "/r";
    const auto written = std::make_shared<recorder>(recorder_settings{directory, 900, {{"velmoor", "1"}}});
    const json picture{{"type", "image"}, {"data", "QUJD"}, {"mimeType", "image/png"}};
    pass(*written, {{"result", {{"content", {picture, picture, {{"type", "text"}, {"text", "said"}}}}}}});
    pass(*written, {{"error", {{"message", "no"}}}});
    recording read = read_recording(directory);
    ASSERT_EQ(read.calls.size(), 2u);
    EXPECT_EQ(read.calls[0].arguments, json({{"a", 1}}));
    EXPECT_FALSE(read.calls[0].is_error);
    EXPECT_TRUE(read.calls[1].is_error);
    const std::string file = read.calls[0].result["content"][1]["file"];
    EXPECT_EQ(std::filesystem::file_size(std::filesystem::path(directory) / file), 3u);
    EXPECT_NE(shown_recording(read).find("said\n    picture " + file), std::string::npos);
    EXPECT_THROW(recorder({directory, 0, json::object()}), std::runtime_error) << "an earlier one is kept";

    std::ofstream(std::filesystem::path(directory) / kRecordingFile, std::ios::app) << R"({"time": 1, "to)";
    read = read_recording(directory);
    EXPECT_EQ(read.calls.size(), 2u);
    ASSERT_EQ(read.notes.size(), 1u);
    EXPECT_TRUE(read.notes[0].ends_with(".jsonl:4: the last line is cut, and passed over")) << read.notes[0];
}

TEST(Recording, EndsAtItsLimit) {
    const orvanic_xr::ScratchDirectory scratch;
    const std::string directory = scratch.path();
    const auto written = std::make_shared<recorder>(recorder_settings{directory, 300, json::object()});
    for (int i = 0; i < 9; ++i) pass(*written, {{"result", {{"content", json::array()}}}});
    const recording read = read_recording(directory);
    EXPECT_GT(read.calls.size(), 0u);
    EXPECT_LT(read.calls.size(), 3u);
    EXPECT_EQ(read.notes, std::vector<std::string>{"the recording reached its limit, and ends there"});
}

TEST(Recording, TellsWhereItIsDamaged) {
    const std::string header = "{\"velmoor_recording\":1}\n";
    for (const auto& [text, fault] :
         {std::pair<std::string, std::string>{"", "f:1: the file is empty"},
          {"{}\n", "f:1: no header of a recording of format 1"},
          {header + "7\n", "f:2: no JSON object"},
          {header + "{\"time\":1,\"took\":1,\"tool\":2}\n", "f:2: \"tool\" is missing or of another type"}}) {
        try {
            parse_recording(text, "f");
            ADD_FAILURE() << text;
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(e.what(), fault);
        }
    }
}

}  // namespace
}  // namespace velmoor
