#include <chrono>

#include "command/applications/proc.h"
#include "command/bridge/arguments.h"
#include "command/bridge/bridge.h"
#include "command/bridge/tool_list.h"
#include "command/launch/started_application.h"
#include "command/xr/xr_tools.h"

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char* kName = "openxr_exit_session";
constexpr milliseconds kLimit{5000};
constexpr milliseconds kBetweenLooks{5};

class ending {
 public:
    ending(tool_run& run, started_application* application, pid_t process)
        : run_(run),
          application_(application && process != 0 && application->is_part(process) ? application : nullptr),
          process_(process) {}

    std::string follow() {
        const auto begin = clock::now();
        bool has_ended = process_ == 0;
        while (!has_ended && clock::now() < begin + kLimit) {
            note_state();
            run_.wait_for_frame(kBetweenLooks);
            has_ended = is_over();
        }
        const auto took = std::chrono::duration_cast<milliseconds>(clock::now() - begin).count();
        std::string text = "States that were seen: " + (states_.empty() ? "none" : states_) + ". ";
        if (!has_ended) return text + "The process still runs after " + std::to_string(took) + " ms.";
        text += "The process has ended after " + std::to_string(took) + " ms";
        if (!application_) return text + ".";
        return text + " with exit code " + std::to_string(application_->exit_code().value_or(-1)) + ".";
    }

 private:
    bool is_over() const { return application_ ? !application_->is_running() : start_of(process_) == 0; }

    void note_state() {
        if (last_ == "XR_SESSION_STATE_EXITING") return;  // none follows, and a process that ends may not answer
        const std::string app = std::to_string(process_);
        if (run_.through().process_for(app) != process_) return;  // it would be waited for
        const json told = run_.ask_while([this] { return !is_over(); }, "openxr_get_session_info", {{"app", app}});
        const json::json_pointer name("/state/name");
        if (!told.is_object() || !told.contains(name) || !told[name].is_string() || told[name] == last_) return;
        last_ = told[name];
        states_ += (states_.empty() ? "" : ", ") + last_;
    }

    tool_run& run_;
    started_application* const application_;
    const pid_t process_;
    std::string last_;
    std::string states_;
};

json exit_session(started_application* application, const json& arguments, tool_run& run) {
    run.call("openxr_get_session_info", app_of(arguments));  // waits for the application
    ending its(run, application, run.through().process_for(app_name(arguments)));
    json result = run.call(kName, arguments);
    if (result.is_object() && result.contains("content") && result["content"].is_array()) {
        result["content"].push_back({{"type", "text"}, {"text", its.follow()}});
    }
    return result;
}

json declaration_of_layer() {
    for (const json& each : builtin_declarations()) {
        if (each["name"] == kName) return each;
    }
    return own_declaration(kName, "", json::object(), false);
}

}  // namespace

own_tool make_exit_tool(started_application* application) {
    json declaration = declaration_of_layer();
    add_app_parameter(declaration);
    return {std::move(declaration),
            [application](const json& arguments, tool_run& run) { return exit_session(application, arguments, run); }};
}

}  // namespace velmoor
