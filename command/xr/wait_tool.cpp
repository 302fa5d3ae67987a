#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "command/bridge/arguments.h"
#include "command/bridge/bridge.h"
#include "command/bridge/results.h"
#include "command/xr/xr_tools.h"

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kBetweenLooks{30};
constexpr milliseconds kBetweenWords{1000};
constexpr double kUsualSeconds = 10;
constexpr double kMostSeconds = 600;

// The value at a path of an answer; null if nothing is there.
json value_at(const json& answer, const std::string& path) {
    const json::json_pointer pointer(path);
    return answer.is_structured() && answer.contains(pointer) ? answer[pointer] : json();
}

bool is_read_only(tool_run& run, const std::string& tool) {
    for (const json& each : mcp::parse_json(*run.through().list_tools())) {
        if (each.value("name", "") != tool) continue;
        return each.contains("annotations") && each["annotations"].value("readOnlyHint", false);
    }
    return false;
}

// What an agent waits for: all that it names has to hold at the same time.
class awaited {
 public:
    awaited(const json& arguments, tool_run& run) : arguments_(arguments), run_(run) {
        if (arguments.contains("app")) app_["app"] = arguments["app"];
        if (arguments.contains("path") && arguments["path"].is_string())
            json::json_pointer(arguments["path"].get<std::string>());
        const json tool = arguments.value("tool", json());
        if (tool.is_string() && !is_read_only(run, tool)) {
            throw std::runtime_error("xr_wait asks read-only tools alone, and " + tool.get<std::string>() + " is none");
        }
        if (!arguments.contains("session_state") && !arguments.contains("frames") && !tool.is_string()) {
            throw std::runtime_error("Name what to wait for: session_state, frames, or tool and path");
        }
    }

    bool holds() {
        seen_.clear();
        // Each is looked at, so that all that was seen can be told.
        const bool has_state = has_session_state();
        const bool has_frames = has_passed_frames();
        return has_value() && has_state && has_frames;
    }
    const std::string& seen() const { return seen_; }

 private:
    bool has_session_state() {
        const json wanted = arguments_.value("session_state", json());
        if (!wanted.is_string()) return true;
        const json state = value_at(run_.ask("openxr_get_session_info", app_), "/state/name");
        tell("session", state);
        return state.is_string() && state.get<std::string>().ends_with("_" + wanted.get<std::string>());
    }

    bool has_passed_frames() {
        const json wanted = arguments_.value("frames", json());
        if (!wanted.is_number()) return true;
        const json frame = run_.ask("openxr_get_frame_info", app_);
        const json time = value_at(frame, "/frame_state/predicted_display_time/XrTime");
        const json period = value_at(frame, "/frame_state/predicted_display_period/XrDuration");
        if (!time.is_number() || !period.is_number() || period.get<double>() <= 0)
            return tell("frames", "none yet"), false;
        if (!first_time_) first_time_ = time.get<double>();
        const double passed = (time.get<double>() - *first_time_) / period.get<double>();
        tell("frames", static_cast<int>(passed));
        return passed + 0.5 >= wanted.get<double>();
    }

    bool has_value() {
        const json tool = arguments_.value("tool", json());
        if (!tool.is_string()) return true;
        json given = arguments_.value("arguments", json::object());
        if (given.is_object()) given.update(app_);
        const json value = value_at(run_.ask(tool, given), arguments_.value("path", ""));
        tell(tool, value);
        if (arguments_.contains("equals") && value != arguments_["equals"]) return false;
        for (const auto& [name, sign] : {std::pair{"above", 1.0}, std::pair{"below", -1.0}}) {
            const json limit = arguments_.value(name, json());
            if (!limit.is_number()) continue;
            if (!value.is_number() || sign * (value.get<double>() - limit.get<double>()) <= 0) return false;
        }
        return !value.is_null();
    }

    void tell(const std::string& what, const json& value) {
        seen_.append(seen_.empty() ? "" : ", ").append(what).append(": ").append(mcp::dump_json(value));
    }

    const json& arguments_;
    tool_run& run_;
    json app_ = json::object();
    std::optional<double> first_time_;
    std::string seen_;
};

json wait_until(const json& arguments, tool_run& run) {
    awaited what(arguments, run);
    const json given = arguments.value("timeout_seconds", json());
    const double seconds = std::min(given.is_number() ? given.get<double>() : kUsualSeconds, kMostSeconds);
    const auto begin = clock::now();
    const auto deadline = begin + milliseconds(static_cast<std::int64_t>(std::max(seconds, 0.0) * 1000));
    auto next_word = begin + kBetweenWords;
    while (!what.holds()) {
        const auto now = clock::now();
        if (now >= deadline)
            return text_result("Error: it did not come about in time. Last seen: " + what.seen(), true);
        if (now >= next_word) {
            run.tell("Waiting; last seen: " + what.seen());
            next_word = now + kBetweenWords;
        }
        run.wait_for_frame(kBetweenLooks);
    }
    const auto took = std::chrono::duration_cast<milliseconds>(clock::now() - begin).count();
    return text_result("It holds, after " + std::to_string(took) + " ms. " + what.seen(), false);
}

}  // namespace

own_tool make_wait_tool() {
    return {own_declaration("xr_wait", "Waits until all of the conditions that are named hold at the same time.",
                            {{"session_state", property("string", "Such as FOCUSED")},
                             {"frames", property("integer", "So many frames from now")},
                             {"tool", property("string", "A read-only tool whose answer is looked at")},
                             {"arguments", property("object", "Of that tool")},
                             {"path", property("string", "Where in its answer, such as /pose/position/1")},
                             {"equals", {{"description", "The value there is this"}}},
                             {"above", property("number", "It is greater")},
                             {"below", property("number", "It is less")},
                             {"timeout_seconds", property("number", "Default 10")}},
                            true),
            wait_until};
}

}  // namespace velmoor
