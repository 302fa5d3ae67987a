#include "command/recording/test_writer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <regex>
#include <set>
#include <string_view>
#include <vector>

#include "command/recording/left_out.h"

namespace velmoor {
namespace {

constexpr double kPauseSeconds = 0.5;
constexpr double kFramesPerSecond = 72;
constexpr double kMostFrames = 144;  // an agent also pauses to think
constexpr double kTolerance = 0.05;  // the simulator's user sways by less
constexpr double kRounding = 1e4;
constexpr std::size_t kMostValues = 20;

// As a plain scalar where YAML can't mistake it, and in quotes else.
std::string scalar(const std::string& text) {
    static const std::regex kPlain("[A-Za-z_/][A-Za-z0-9_/.-]{0,99}");
    static const std::set<std::string, std::less<>> kWords = {"true", "false", "null", "yes", "no", "on", "off"};
    return std::regex_match(text, kPlain) && !kWords.contains(text) ? text : mcp::dump_json(json(text));
}

std::string seconds(double of) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", of);
    return text;
}

json rounded(const json& value) {
    if (value.is_number_float()) return std::round(value.get<double>() * kRounding) / kRounding;
    if (!value.is_array()) return value;
    json made = json::array();
    for (const json& each : value) made.push_back(rounded(each));
    return made;
}

// The expectations of one answer.
class expectations {
 public:
    explicit expectations(const json& answer) { add(answer, ""); }

    std::string text() const {
        std::string made;
        if (!lines_.empty()) made = "    values:\n" + lines_;
        if (count_ > kMostValues) made += "      # " + std::to_string(count_ - kMostValues) + " more values\n";
        std::string names;
        for (const std::string& each : left_out_) names += (names.empty() ? "" : ", ") + each;
        if (!names.empty()) made += "    # differs from run to run: " + names + "\n";
        return made;
    }
    bool are_none() const { return lines_.empty(); }

 private:
    void add(const json& of, const std::string& path) {
        const auto is_number = [](const json& each) { return each.is_number(); };
        if (of.is_structured() && !(of.is_array() && std::all_of(of.begin(), of.end(), is_number))) {
            for (const auto& [key, value] : of.items()) {
                if ((of.is_object() && is_named_as_fleeting(key)) || looks_fleeting(value)) {
                    left_out_.insert(scalar(key));
                } else {
                    add(value, (json::json_pointer(path) / key).to_string());
                }
            }
            return;
        }
        if (++count_ > kMostValues) return;
        const auto is_float = [](const json& each) { return each.is_number_float(); };
        const bool is_near = of.is_number_float() || (of.is_array() && std::any_of(of.begin(), of.end(), is_float));
        const std::string value = mcp::dump_json(rounded(of));
        lines_ += "      " + scalar(path) + ": ";
        lines_ += is_near ? "{near: " + value + ", absolute: " + mcp::dump_json(kTolerance) + "}\n" : value + "\n";
    }

    std::string lines_;
    std::set<std::string> left_out_;
    std::size_t count_ = 0;
};

// Of an answer in words, which is for people, there are none.
expectations expectations_of(const json& result) {
    try {
        const json answer = mcp::parse_json(texts_in(result));
        return expectations(answer.is_structured() ? answer : json::object());
    } catch (const std::exception&) {
        return expectations(json::object());
    }
}

// What lies around the part that was shown; empty if it was all.
std::string masks_around(const json& picture) {
    const auto side = [&](const char* what, const char* name) {
        const json value = picture.value(what, json::object()).value(name, json());
        return value.is_number_integer() ? value.get<int>() : 0;
    };
    const int left = side("shows", "x");
    const int top = side("shows", "y");
    const int right = left + side("shows", "width");
    const int bottom = top + side("shows", "height");
    const int width = side("of", "width");
    const int height = side("of", "height");
    if (left < 0 || top < 0 || right <= left || bottom <= top || right > width || bottom > height) return {};
    json masks = json::array();
    const auto add = [&](int x, int y, int wide, int high) {
        if (wide > 0 && high > 0) masks.push_back({x, y, wide, high});
    };
    add(0, 0, width, top);
    add(0, bottom, width, height - bottom);
    add(0, top, left, bottom - top);
    add(right, top, width - right, bottom - top);
    return masks.empty() ? "" : "    masks: " + mcp::dump_json(masks) + "  # only a part was looked at\n";
}

std::string pictures_of(const recorded_call& call, int number) {
    json shown;
    try {
        if (call.tool == "xr_picture") shown = mcp::parse_json(texts_in(call.result)).value("pictures", json());
    } catch (const std::exception&) {
        shown = nullptr;
    }
    if (!shown.is_array() || shown.empty()) shown = json::array({{{"eye", call.arguments.value("eye", json())}}});
    std::string text;
    for (const json& each : shown) {
        if (!each.is_object()) continue;
        text += "  - picture: picture-" + std::to_string(number) + "\n";
        if (each.value("eye", json()) == "right") text += "    eye: right\n";
        text += masks_around(each);
    }
    return text;
}

bool is_picture(const recorded_call& call) {
    return !call.is_error && (call.tool == "openxr_capture_composited_image" || call.tool == "xr_picture");
}

// It changes nothing, so that it may be asked again.
bool is_read(const recorded_call& call) {
    constexpr std::array<std::string_view, 5> kPrefixes = {"openxr_get_", "openxr_list_", "read_", "get_", "list_"};
    const auto begins = [&](std::string_view prefix) { return call.tool.starts_with(prefix); };
    return !call.is_error && (call.tool == "xr_inputs" || std::any_of(kPrefixes.begin(), kPrefixes.end(), begins));
}

std::string wait_for_frames(double pause) {
    const double frames = std::min(std::round(pause * kFramesPerSecond), kMostFrames);
    return "  - wait: {frames: " + std::to_string(static_cast<int>(frames)) + "}  # the session paused for " +
           seconds(pause) + "\n";
}

// `pause` went before it.
std::string step_of(const recorded_call& call, double pause, int& pictures) {
    json arguments = call.arguments;
    arguments.erase("app");
    const expectations values = call.is_error ? expectations(json::object()) : expectations_of(call.result);
    const bool waits = is_read(call) && !values.are_none();
    std::string text;
    if (pause >= kPauseSeconds) {
        text = waits ? "  # The session paused for " + seconds(pause) + ": this waits until it is so.\n"
                     : wait_for_frames(pause);
    }
    if (call.tool == "xr_wait") return text + "  - wait: " + mcp::dump_json(arguments) + "\n";
    if (is_picture(call)) return text + pictures_of(call, ++pictures);
    text += (waits ? "  - expect: " : "  - call: ") + scalar(call.tool) + "\n";
    if (!arguments.empty()) text += "    arguments: " + mcp::dump_json(arguments) + "\n";
    return text + (call.is_error ? "    fails: true\n" : values.text());
}

// The simulator as it was, but for its clock: one that stands makes two runs alike.
std::string application_of(const recording& what) {
    if (!what.header.is_object()) return {};
    const json name = what.header.value("application", json());
    if (what.header.value("simulator", json()) != true || !name.is_string()) return {};
    std::string text = "# `fixed` holds " + scalar(name.get<std::string>()) +
                       " between two steps; `real` goes by the machine's clock.\n" +
                       "application:\n  environment:\n    VELMOOR_SIM_CLOCK: fixed\n";
    const json environment = what.header.value("environment", json());
    for (const char* each : {"VELMOOR_SIM_EYE_SIZE", "VELMOOR_SIM_HZ", "VELMOOR_SIM_SCENE", "VELMOOR_SIM_SEED"}) {
        const json value = environment.is_object() ? environment.value(each, json()) : json();
        if (value.is_string()) text += std::string("    ") + each + ": " + mcp::dump_json(value) + "\n";
    }
    return text;
}

// The test's own start stands for the first one, and output is for people.
bool is_left_out(const recorded_call& call, bool is_first) {
    return call.tool == "app_output" || call.tool == "app_list" || (is_first && call.tool.starts_with("app_"));
}

}  // namespace

std::string test_of(const recording& what) {
    std::string text =
        "# Made of a recording, to be edited. Values that differ from run to run are left out by the names of their\n"
        "# keys. `velmoor test --update` writes the pictures to compare with.\n" +
        application_of(what) + "steps:\n";
    int pictures = 0;
    bool is_first = true;
    double end = what.calls.empty() ? 0 : what.calls[0].seconds;
    for (const recorded_call& each : what.calls) {
        const double pause = each.seconds - end;
        if (!is_left_out(each, is_first)) {
            text += step_of(each, is_first ? 0 : pause, pictures);
            is_first = false;
        } else if (!is_first) {
            continue;
        }
        end = each.seconds + each.took;
    }
    return text + "  - say: The end\n";
}

}  // namespace velmoor
