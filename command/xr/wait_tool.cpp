#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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
constexpr double kMostFrames = 1e6;
constexpr double kUsualMetres = 0.05;
constexpr double kMostMetres = 1e6;
constexpr double kNoLimit = std::numeric_limits<double>::infinity();

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

const std::vector<std::string> kStates = {"IDLE",    "READY",    "SYNCHRONIZED", "VISIBLE",
                                          "FOCUSED", "STOPPING", "LOSS_PENDING", "EXITING"};

// One of them, however it was written; empty if none is given.
std::string session_state_argument(const json& arguments) {
    constexpr std::string_view kPrefix = "XR_SESSION_STATE_";
    std::string name = text_argument(arguments, "session_state");
    if (arguments.value("session_state", json()).is_null()) return {};
    for (char& c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (name.starts_with(kPrefix)) name.erase(0, kPrefix.size());
    return choice_argument({{"session_state", name}}, "session_state", kStates);
}

// What says more of `main` is of no use without it.
void refuse_without(const json& arguments, const std::string& main, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (!arguments.value(name, json()).is_null()) throw std::runtime_error(name + (" needs " + main));
    }
}

std::string path_argument(const json& arguments) {
    std::string path = text_argument(arguments, "path");
    try {
        [[maybe_unused]] const json::json_pointer where(path);
    } catch (const json::exception&) {
        throw std::runtime_error("path must be like /pose/position/1, with ~0 for ~ and ~1 for / in a name");
    }
    return path;
}

// What an agent waits for: all that it names has to hold at the same time.
class awaited {
 public:
    awaited(const json& arguments, tool_run& run)
        : run_(run),
          app_(app_of(arguments)),
          session_state_(session_state_argument(arguments)),
          frames_(number_argument(arguments, "frames", 0, 0, kMostFrames)),
          profile_(text_argument(arguments, "profile")),
          near_(numbers_argument(arguments, "near", 3, -kMostMetres, kMostMetres)),
          device_(choice_argument(arguments, "device", {"head", "left", "right"})),
          within_(number_argument(arguments, "within", kUsualMetres, 0, kMostMetres)),
          tool_(text_argument(arguments, "tool")),
          tool_arguments_(object_argument(arguments, "arguments")),
          path_(path_argument(arguments)),
          above_(number_argument(arguments, "above", -kNoLimit, -kNoLimit, kNoLimit)),
          below_(number_argument(arguments, "below", kNoLimit, -kNoLimit, kNoLimit)) {
        if (tool_.empty()) refuse_without(arguments, "tool", {"arguments", "path", "equals", "above", "below"});
        if (near_.empty()) refuse_without(arguments, "near", {"device", "within", "base_space"});
        if (arguments.contains("equals")) equals_ = arguments["equals"];
        place_ = app_;
        if (const std::string space = text_argument(arguments, "base_space"); !space.empty())
            place_["base_space"] = space;
        tool_arguments_.update(app_);
        if (!tool_.empty() && !is_read_only(run, tool_)) {
            throw std::runtime_error("xr_wait asks read-only tools alone, and " + tool_ + " is none");
        }
        if (session_state_.empty() && frames_ == 0 && profile_.empty() && near_.empty() && tool_.empty()) {
            throw std::runtime_error("Name what to wait for: session_state, frames, profile, near, or tool and path");
        }
    }

    bool holds() {
        seen_.clear();
        // Each is looked at, so that all that was seen can be told.
        const bool has_state = has_session_state();
        const bool has_frames = has_passed_frames();
        const bool has_bound = has_profile();
        const bool is_there = is_near();
        return has_value() && has_state && has_frames && has_bound && is_there;
    }
    const std::string& seen() const { return seen_; }

 private:
    bool has_session_state() {
        if (session_state_.empty()) return true;
        const json state = value_at(run_.ask("openxr_get_session_info", app_), "/state/name");
        tell("session", state);
        return state.is_string() && state.get<std::string>().ends_with("_" + session_state_);
    }

    bool has_passed_frames() {
        if (frames_ == 0) return true;
        const json frame = run_.ask("openxr_get_frame_info", app_);
        const json time = value_at(frame, "/frame_state/predicted_display_time/XrTime");
        const json period = value_at(frame, "/frame_state/predicted_display_period/XrDuration");
        if (!time.is_number() || !period.is_number() || period.get<double>() <= 0)
            return tell("frames", "none yet"), false;
        if (!first_time_) first_time_ = time.get<double>();
        const double passed = (time.get<double>() - *first_time_) / period.get<double>();
        tell("frames", static_cast<int>(passed));
        return passed + 0.5 >= frames_;
    }

    bool has_profile() {
        if (profile_.empty()) return true;
        const json hands = run_.ask("openxr_get_active_interaction_profile", app_);
        bool has_bound = false;
        for (const char* hand : {"left", "right"}) {
            const json bound = value_at(hands, std::string("/") + hand + "/profile");
            tell(hand, bound);
            has_bound |= bound.is_string() && bound.get<std::string>().ends_with(profile_);
        }
        return has_bound;
    }

    bool is_near() {
        if (near_.empty()) return true;
        json where = place_;
        if (device_ != "head") where["hand"] = device_;
        const json answer = run_.ask(device_ == "head" ? "openxr_get_head_pose" : "openxr_get_controller_pose", where);
        const json position = value_at(answer, "/pose/position");
        tell(device_, position);
        if (value_at(answer, "/flags/position_valid") != true || !position.is_array() || position.size() != 3)
            return false;
        const auto apart = [&](std::size_t axis) { return position[axis].get<double>() - near_[axis]; };
        return std::hypot(apart(0), apart(1), apart(2)) <= within_;
    }

    bool has_value() {
        if (tool_.empty()) return true;
        const json value = value_at(run_.ask(tool_, tool_arguments_), path_);
        tell(tool_, value);
        if (equals_ && value != *equals_) return false;
        if (above_ == -kNoLimit && below_ == kNoLimit) return !value.is_null();
        return value.is_number() && value.get<double>() > above_ && value.get<double>() < below_;
    }

    void tell(const std::string& what, const json& value) {
        seen_.append(seen_.empty() ? "" : ", ").append(what).append(": ").append(mcp::dump_json(value));
    }

    tool_run& run_;
    const json app_;
    const std::string session_state_;
    const double frames_;
    const std::string profile_;
    const std::vector<double> near_;
    const std::string device_;
    const double within_;
    json place_;  // what a pose is asked with
    const std::string tool_;
    json tool_arguments_;
    const std::string path_;
    std::optional<json> equals_;
    const double above_;
    const double below_;
    std::optional<double> first_time_;
    std::string seen_;
};

json wait_until(const json& arguments, tool_run& run) {
    awaited what(arguments, run);
    const double seconds = number_argument(arguments, "timeout_seconds", kUsualSeconds, 0, kMostSeconds);
    const auto begin = clock::now();
    const auto deadline = begin + milliseconds(static_cast<std::int64_t>(seconds * 1000));
    auto next_word = begin + kBetweenWords;
    run.stay_with_if_there(arguments);
    while (!what.holds()) {
        run.stay_with_if_there(arguments);
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
                             {"profile", property("string", "The interaction profile of a hand ends so")},
                             {"near", numbers_property(3, "The device is there; metres")},
                             {"device", choice_property({"head", "left", "right"}, "Of near; default head")},
                             {"within", property("number", "Of near, metres; default 0.05")},
                             {"base_space", property("string", "Of near, as of openxr_get_head_pose")},
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
