#include "command/app_tools.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <utility>

#include "command/bridge/arguments.h"
#include "command/bridge/bridge.h"
#include "command/bridge/results.h"

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kBetweenLooks{50};
constexpr milliseconds kBetweenWords{1000};
constexpr double kUsualSeconds = 30;
constexpr double kMostSeconds = 600;
constexpr std::size_t kLinesOfFailure = 20;
constexpr int kUsualLines = 40;
constexpr int kMostLines = 1000;
const std::vector<std::string> kLevels = {"info", "debug", "warning", "error"};  // the first if none is given

std::string joined(const std::vector<output_line>& lines) {
    std::string text;
    for (const output_line& each : lines) text += each.text + "\n";
    return text;
}

std::string last_lines(const started_application& application) {
    const std::string lines = joined(application.output(kLinesOfFailure, 1));
    return lines.empty() ? "\nIt has printed nothing." : "\nIts last lines:\n" + lines;
}

// What of an answer lies at a path, as text; empty if nothing does.
std::string text_at(const json& answer, const char* path) {
    const json::json_pointer pointer(path);
    if (!answer.contains(pointer)) return {};
    const json& value = answer[pointer];
    return value.is_string() ? value.get<std::string>() : mcp::dump_json(value);
}

// Follows an application from its start until it can be operated.
class start_watch {
 public:
    // `start` is the number of the one that is followed.
    start_watch(started_application& application, tool_run& run, int start, double seconds)
        : application_(application),
          run_(run),
          start_(start),
          deadline_(clock::now() + milliseconds(static_cast<int>(seconds * 1000))) {}

    json watch() {
        const auto begin = clock::now();
        while (!is_operable()) {
            if (application_.last_start() != start_) {
                return text_result("Error: another call has started the application anew before " + awaited_ + ".",
                                   true);
            }
            if (!application_.is_running()) {
                const int code = application_.exit_code().value_or(-1);
                return text_result("Error: the application ended with exit code " + std::to_string(code) + " before " +
                                       awaited_ + "." + last_lines(application_),
                                   true);
            }
            if (clock::now() >= deadline_) {
                return text_result("Error: the application runs, but " + awaited_ + " did not come in time." +
                                       last_lines(application_),
                                   true);
            }
            if (clock::now() >= next_word_) {
                run_.tell("Waiting for " + awaited_);
                next_word_ = clock::now() + kBetweenWords;
            }
            // Until the session is there, it has no frames.
            has_session_ ? run_.wait_for_frame(kBetweenLooks) : run_.wait_for(kBetweenLooks);
        }
        const auto took = std::chrono::duration_cast<milliseconds>(clock::now() - begin).count();
        return text_result(application_name_ + " (pid " + std::to_string(pid_) +
                               ") runs, its session is in focus and " + "frames flow, after " + std::to_string(took) +
                               " ms.",
                           false);
    }

 private:
    bool is_operable() {
        if (!has_link() || !is_focused()) return false;
        const std::string frame =
            text_at(run_.ask("openxr_get_frame_info", app()), "/frame_state/predicted_display_time/XrTime");
        awaited_ = "its frames";
        if (frame.empty()) return false;
        if (first_frame_.empty()) first_frame_ = frame;
        return frame != first_frame_;
    }

    bool has_link() {
        if (pid_ == 0) {
            for (const auto& each : run_.through().applications()) {
                if (!application_.is_part(each.who.pid)) continue;
                pid_ = each.who.pid;
                application_name_ = each.who.name;
                run_.through().prefer(pid_);
            }
        }
        if (pid_ == 0) return false;
        awaited_ = "the layer's server in it";
        for (const auto& each : run_.through().applications()) {
            if (each.who.pid == pid_) return each.state == link_state::ready;
        }
        return false;
    }

    bool is_focused() {
        if (is_focused_) return true;
        const std::string state = text_at(run_.ask("openxr_get_session_info", app()), "/state/name");
        awaited_ = state.empty() ? "its OpenXR session" : "the focus (its session is in " + state + ")";
        has_session_ = !state.empty();
        is_focused_ = state == "XR_SESSION_STATE_FOCUSED";
        return is_focused_;
    }

    json app() const { return {{"app", std::to_string(pid_)}}; }

    started_application& application_;
    tool_run& run_;
    const int start_;
    const clock::time_point deadline_;
    clock::time_point next_word_ = clock::now() + kBetweenWords;
    std::string awaited_ = "the layer's server (does it create an OpenXR instance?)";
    pid_t pid_ = 0;
    std::string application_name_;
    bool has_session_ = false;
    bool is_focused_ = false;
    std::string first_frame_;
};

json start_application(started_application& application, int (started_application::*how)(), const json& arguments,
                       tool_run& run) {
    const double seconds = number_argument(arguments, "timeout_seconds", kUsualSeconds, 0, kMostSeconds);
    const int start = (application.*how)();
    return start_watch(application, run, start, seconds).watch();
}

std::string stop_application(started_application& application, tool_run& run) {
    const std::optional<int> code = application.stop();
    run.through().prefer(0);
    if (!code) {
        const std::optional<int> earlier = application.exit_code();
        return "The application was not running" +
               (earlier ? "; it had ended with exit code " + std::to_string(*earlier) + "." : ".");
    }
    return "The application has ended with exit code " + std::to_string(*code) + ".";
}

json read_output(const started_application& application, const json& arguments) {
    const auto most = static_cast<std::size_t>(number_argument(arguments, "lines", kUsualLines, 0, kMostLines));
    const std::string level = choice_argument(arguments, "level", kLevels);
    const int least = level == "debug" ? 0 : level == "info" ? 1 : level == "warning" ? 2 : 3;
    const std::string text = joined(application.output(most, least));
    return text_result(text.empty() ? "Nothing of that level was printed." : text, false);
}

json declaration(const char* name, const std::string& description, json properties, bool is_read_only) {
    return {{"name", name},
            {"description", description},
            {"inputSchema", {{"type", "object"}, {"properties", std::move(properties)}}},
            {"annotations", {{"readOnlyHint", is_read_only}}}};
}

}  // namespace

std::vector<own_tool> app_tools(started_application& application) {
    const std::string shown = application.shown_command();
    const json timeout{{"timeout_seconds", {{"type", "number"}, {"description", "Default 30"}}}};
    std::vector<own_tool> tools;
    tools.push_back(
        {declaration("app_start",
                     "Starts the application (" + shown +
                         "). Returns when its session is in focus and frames flow, or says how far it came.",
                     timeout, false),
         [&application](const json& arguments, tool_run& run) {
             return start_application(application, &started_application::start, arguments, run);
         }});
    tools.push_back({declaration("app_restart", "Ends the application if it runs, and starts it as app_start does.",
                                 timeout, false),
                     [&application](const json& arguments, tool_run& run) {
                         run.through().prefer(0);
                         return start_application(application, &started_application::restart, arguments, run);
                     }});
    tools.push_back({declaration("app_stop", "Ends the application and tells its exit code.", json::object(), false),
                     [&application](const json&, tool_run& run) {
                         return text_result(stop_application(application, run), false);
                     }});
    tools.push_back({declaration("app_output",
                                 "The last lines that the application and the layer printed. Lines of the layer below "
                                 "`level` are left out.",
                                 {{"lines", {{"type", "integer"}, {"description", "Default 40"}}},
                                  {"level", {{"type", "string"}, {"enum", kLevels}, {"description", "Default info"}}}},
                                 true),
                     [&application](const json& arguments, tool_run&) { return read_output(application, arguments); }});
    return tools;
}

}  // namespace velmoor
