#include "command/recording/test_writer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace velmoor {
namespace {

constexpr double kPauseSeconds = 0.5;
constexpr double kFramesPerSecond = 72;
constexpr double kMostFrames = 720;
constexpr double kTolerance = 0.05;  // the simulator's user sways by less
constexpr std::size_t kMostValues = 20;

// What differs from one run to the next, by the name of its key.
constexpr std::array<std::string_view, 8> kLeftOut = {"time",     "handle", "_id",   "pid",
                                                      "duration", "period", "frame", "version"};

bool differs_from_run_to_run(const std::string& key) {
    return std::any_of(kLeftOut.begin(), kLeftOut.end(),
                       [&](std::string_view each) { return key.find(each) != std::string::npos; });
}

void add_values(const json& of, const std::string& path, std::string& text, std::size_t& count) {
    if (of.is_structured()) {
        for (const auto& [key, value] : of.items()) {
            if (of.is_object() && differs_from_run_to_run(key)) continue;
            add_values(value, (json::json_pointer(path) / key).to_string(), text, count);
        }
        return;
    }
    if (++count > kMostValues) return;
    const std::string value = mcp::dump_json(of);
    text += "      " + mcp::dump_json(path) + ": ";
    text +=
        of.is_number_float() ? "{near: " + value + ", absolute: " + mcp::dump_json(kTolerance) + "}\n" : value + "\n";
}

std::string values_of(const json& result) {
    std::string text;
    std::size_t count = 0;
    try {
        const json answer = mcp::parse_json(texts_in(result));
        if (answer.is_structured()) add_values(answer, "", text, count);
    } catch (const std::exception&) {
        return {};  // an answer in words is for people
    }
    if (text.empty()) return {};
    if (count > kMostValues) text += "      # " + std::to_string(count - kMostValues) + " more are left out\n";
    return "    values:\n" + text;
}

std::string step_of(const recorded_call& call, const json& arguments, int& pictures) {
    if (call.tool == "xr_wait") return "  - wait: " + mcp::dump_json(arguments) + "\n";
    if (call.tool == "openxr_capture_composited_image" || call.tool == "xr_picture") {
        const std::string eye = arguments.value("eye", json()) == "right" ? "right" : "left";
        return "  - picture: picture-" + std::to_string(++pictures) + "\n    eye: " + eye + "\n";
    }
    const bool reads = call.tool.starts_with("openxr_get_") || call.tool.starts_with("read_");
    std::string text = (reads && !call.is_error ? "  - expect: " : "  - call: ") + mcp::dump_json(call.tool) + "\n";
    if (!arguments.empty()) text += "    arguments: " + mcp::dump_json(arguments) + "\n";
    return text + (call.is_error ? "    fails: true\n" : values_of(call.result));
}

}  // namespace

std::string test_of(const recording& what) {
    std::string text =
        "# Made of a recording. Left out are values that differ from run to run (times, handles, ids, frames, "
        "versions),\n"
        "# and calls that start, end or list applications. A pause is a wait for so many frames. `velmoor test "
        "--update`\n"
        "# writes the pictures to compare with.\n"
        "steps:\n";
    int pictures = 0;
    double end = what.calls.empty() ? 0 : what.calls[0].seconds;
    for (const recorded_call& each : what.calls) {
        const double pause = each.seconds - end;
        end = each.seconds + each.took;
        if (each.tool.starts_with("app_")) continue;
        if (pause >= kPauseSeconds) {
            const double frames = std::min(std::round(pause * kFramesPerSecond), kMostFrames);
            text += "  - wait: {frames: " + std::to_string(static_cast<int>(frames)) + "}\n";
        }
        json arguments = each.arguments;
        arguments.erase("app");
        text += step_of(each, arguments, pictures);
    }
    return text + "  - say: The end\n";
}

}  // namespace velmoor
