#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <optional>
#include <stdexcept>

#include "command/bridge/arguments.h"
#include "command/bridge/results.h"
#include "command/xr/xr_tools.h"

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;

constexpr std::size_t kMostSteps = 200;
constexpr double kMostSeconds = 600;
const std::vector<std::string> kTools = {"openxr_set_controller_input",
                                         "openxr_set_controller_pose",
                                         "openxr_set_head_pose",
                                         "xr_move",
                                         "xr_look_at",
                                         "xr_point_at",
                                         "xr_release_all",
                                         "xr_wait"};

struct planned_step {
    std::optional<double> at;  // seconds from the beginning
    planned_call call;
};

planned_step step_from(const json& given, const json& app) {
    if (!given.is_object()) throw std::runtime_error("it must be an object");
    for (const auto& [name, value] : given.items()) {
        if (name != "at" && name != "frames" && name != "tool" && name != "arguments") {
            throw std::runtime_error("a step takes no \"" + name + "\"; it takes: at, frames, tool, arguments");
        }
    }
    planned_step made;
    if (given.contains("at")) made.at = number_argument(given, "at", 0, 0, kMostSeconds);
    if (given.contains("frames")) {
        if (given.contains("tool") || given.contains("arguments")) {
            throw std::runtime_error("it waits so many frames, or calls a tool with arguments; not both");
        }
        made.call = {"xr_wait", {{"frames", number_argument(given, "frames", 0, 0, 100000)}}};
    } else {
        if (text_argument(given, "tool").empty()) throw std::runtime_error("name a tool, or frames to wait");
        made.call = {choice_argument(given, "tool", kTools), object_argument(given, "arguments")};
    }
    made.call.arguments.update(app);
    return made;
}

std::vector<planned_step> steps_of(const json& arguments) {
    const json given = arguments.value("steps", json());
    if (!given.is_array() || given.empty() || given.size() > kMostSteps) {
        throw std::runtime_error("steps must be a list of 1 to " + std::to_string(kMostSteps) + " steps");
    }
    std::vector<planned_step> steps;
    for (const json& each : given) {
        try {
            steps.push_back(step_from(each, app_of(arguments)));
        } catch (const std::exception& e) {
            throw std::runtime_error("step " + std::to_string(steps.size() + 1) +
                                     " was not begun, nor any other: " + e.what());
        }
    }
    return steps;
}

// Frames as they are counted from the first that was seen.
class frame_count {
 public:
    frame_count(tool_run& run, json app) : run_(run), app_(std::move(app)) { now(); }

    // The last frame that the application has ended; null before there is one.
    json now() {
        const json told = run_.ask("openxr_get_frame_info", app_);
        const json::json_pointer time("/frame_state/predicted_display_time/XrTime");
        const json::json_pointer period("/frame_state/predicted_display_period/XrDuration");
        if (!told.is_object() || !told.contains(time) || !told.contains(period) || !told[time].is_number_integer()) {
            return nullptr;
        }
        const auto at = told[time].get<std::int64_t>();
        if (!first_) first_ = at;
        const double length = told[period].is_number() ? told[period].get<double>() : 0;
        json frame{{"display_time", at}};
        if (length > 0) frame["frame"] = std::llround(static_cast<double>(at - *first_) / length);
        return frame;
    }

 private:
    tool_run& run_;
    const json app_;
    std::optional<std::int64_t> first_;
};

json act(const json& arguments, tool_run& run) {
    const std::vector<planned_step> steps = steps_of(arguments);
    run.stay_with(arguments);  // waits for it, outside of the steps' time
    frame_count frames(run, app_of(arguments));
    const auto begin = clock::now();
    const auto seconds = [&] { return std::chrono::duration<double>(clock::now() - begin).count(); };
    json rows = json::array();
    std::string failure;
    for (const planned_step& each : steps) {
        json row{{"step", rows.size() + 1}, {"tool", each.call.tool}};
        try {
            while (each.at && seconds() < *each.at) {
                run.wait_for(std::chrono::milliseconds(static_cast<int>(std::ceil((*each.at - seconds()) * 1000))));
            }
            row["begun"] = seconds();
            run.call(each.call.tool, each.call.arguments);
            row["ended"] = seconds();
            const json frame = frames.now();
            if (frame.is_object()) row.update(frame);
        } catch (const std::exception& e) {
            failure = e.what();
        }
        rows.push_back(std::move(row));
        if (!failure.empty()) break;
        run.tell("Step " + std::to_string(rows.size()) + " of " + std::to_string(steps.size()) + " is done");
    }
    const std::string told = mcp::dump_json({{"steps", rows}});
    if (failure.empty()) return text_result(told, false);
    return text_result("Error: step " + std::to_string(rows.size()) +
                           " failed and those behind it were not run: " + failure + "\n" + told,
                       true);
}

}  // namespace

own_tool make_act_tool() {
    json properties{
        {"at", property("number", "Begins so many seconds after the first; default when the one before has ended")},
        {"frames", property("integer", "In place of a tool: waits so many frames")},
        {"tool", choice_property(kTools, "What it calls")},
        {"arguments", property("object", "Of that tool")}};
    json steps{{"type", "array"}, {"minItems", 1}, {"maxItems", kMostSteps}};
    steps["items"] = {{"type", "object"}, {"properties", std::move(properties)}};
    steps["description"] = "Run one after the other";
    return {own_declaration("xr_act",
                            "Runs a timed list of poses, inputs and waits, and tells for each when it was done and the "
                            "last frame then. A failure ends it.",
                            {{"steps", std::move(steps)}}, false, {"steps"}),
            act};
}

}  // namespace velmoor
