#include "command/testing/tested_application.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "command/app_tools.h"
#include "command/applications/finder.h"
#include "command/bridge/pending_call.h"
#include "command/bridge/pictures.h"
#include "command/bridge/results.h"
#include "command/bridge/tool_list.h"
#include "command/sim_tools.h"
#include "command/testing/baselines.h"
#include "command/xr/xr_tools.h"
#include "mcp/client/blocking_client.h"
#include "mcp/server_host.h"

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kAskLimit{5000};
// An application that takes longer for one answer hangs. Tools that wait for frames take at most a part of it.
constexpr milliseconds kAnswerLimit{45000};
constexpr milliseconds kBetweenLooks{20};
constexpr milliseconds kAnswerOfEnded{5000};
// Between being told to end and seeing it.
constexpr milliseconds kStopSeen{100};
// Between the end of a process and the time at which it is seen.
constexpr milliseconds kEndSeen{300};
// Until what was set is drawn, also by an application that works at two frames at a time.
constexpr std::uint64_t kFramesToShow = 2;
constexpr std::size_t kOutputLines = 400;

// The simulator's clock; with `fixed` and `stepped`, the application is held between two steps.
std::string clock_of(const launch_options& options) {
    environment variables = current_environment();
    for (const auto& [name, value] : options.variables) variables[name] = value;
    return options.simulator ? variables["VELMOOR_SIM_CLOCK"] : std::string();
}

bool is_held(const launch_options& options) {
    return clock_of(options) == "fixed" || clock_of(options) == "stepped";
}

launch_options with_variables(const test_file& test, const run_settings& settings) {
    launch_options options = settings.launch;
    for (const auto& [name, value] : test.environment) options.variables[name] = value;
    return options;
}

launch_options launch_of(const test_file& test, const run_settings& settings, const std::string& control) {
    launch_options options = with_variables(test, settings);
    if (options.simulator) options.control = control;
    if (is_held(options)) options.variables["VELMOOR_SIM_CLOCK"] = "stepped";
    return options;
}

tool_call call_of(const std::string& tool, const json& arguments) {
    return {.name = tool, .arguments = arguments, .done = nullptr, .report = nullptr};
}

}  // namespace

std::string text_of_outcome(const json& outcome) {
    if (outcome.contains("error")) return outcome["error"].value("message", "the call failed");
    return mcp::text_of(outcome.at("result"));
}

tested_application::tested_application(const test_file& test, const run_settings& settings)
    : settings_(settings),
      options_(launch_of(test, settings, control_.text())),
      shows_newest_(clock_of(with_variables(test, settings)) == "fixed"),
      application_(settings.command, options_),
      time_(
          is_held(options_) ? &simulator_ : nullptr, [this] { return bridge_.process_for({}); },
          [this] { pending_call(bridge_, call_of("openxr_get_instance_info", json::object())).wait_for(kAskLimit); }),
      bridge_(bridge_of()) {
    bridge_.introduce({{"name", "velmoor test"}, {"version", settings.version}});
    bridge_.expect_calls();
}

// Of all applications on this machine, that of this test alone.
bridge_settings tested_application::bridge_of() {
    bridge_settings made;
    made.around = surroundings_of_machine(orvanic_xr::kMcpServerPort);
    made.around.find = [this, find = made.around.find] {
        std::vector<application> found = find();
        std::erase_if(found, [this](const application& each) { return !application_.is_part(each.pid); });
        return found;
    };
    made.version = settings_.version;
    made.own_tools = xr_tools(&application_);
    for (own_tool& each : app_tools(application_)) made.own_tools.push_back(std::move(each));
    if (settings_.launch.simulator) {
        for (own_tool& each : sim_tools(simulator_)) made.own_tools.push_back(std::move(each));
        made.gather = [this](bool is_wanted) { return simulator_.gather(is_wanted); };
        made.let_frame_pass = [this] { return simulator_.let_frames_pass(); };
    }
    for (const own_tool& each : made.own_tools) our_tools_.insert(each.declaration["name"].get<std::string>());
    return made;
}

void tested_application::start(double seconds) {
    const json outcome = outcome_of_call("app_start", {{"timeout_seconds", seconds}}, from_seconds(seconds));
    if (is_failure(outcome)) throw set_up_fault(text_of_outcome(outcome));
    const json info = mcp::parse_json(answer("openxr_get_system_info", json::object()));
    system_ = info.is_object() ? info.value("system_name", "unknown") : "unknown";
}

void tested_application::stop() {
    bridge_.stop();
    application_.stop();
}

bool tested_application::has_ended() {
    const auto deadline = clock::now() + kEndSeen;
    while (application_.is_running() && clock::now() < deadline) std::this_thread::sleep_for(kBetweenLooks);
    return !application_.is_running();
}

std::string tested_application::output() {
    std::string text;
    for (const output_line& each : application_.output(kOutputLines, 0)) text += each.text + "\n";
    return text;
}

json tested_application::outcome_of_call(const std::string& tool, const json& arguments, milliseconds more) {
    pending_call pending(bridge_, call_of(tool, arguments));
    const bool needs_frames = time_.stands() && !is_builtin(tool) && !our_tools_.contains(tool);
    const milliseconds limit = kAnswerLimit + more;
    const auto deadline = clock::now() + limit;
    std::optional<clock::time_point> answered_by;  // of an application that has ended
    while (clock::now() < answered_by.value_or(deadline) && !is_stopped()) {
        auto outcome = needs_frames ? time_.outcome_of(pending, kStopSeen) : pending.wait_for(kStopSeen);
        if (outcome) return std::move(*outcome);
        const bool is_over = !tool.starts_with("app_") && !application_.is_running();
        if (is_over && !answered_by) answered_by = clock::now() + kAnswerOfEnded;
    }
    pending.cancel("no answer in time");
    if (answered_by) throw test_fault("it has not answered " + tool);
    if (is_stopped()) throw set_up_fault("velmoor test was told to end");
    throw set_up_fault("the application hangs: it has not answered " + tool + " within " +
                       std::to_string(limit.count() / 1000) + " s");
}

std::string tested_application::answer(const std::string& tool, const json& arguments) {
    const json outcome = outcome_of_call(tool, arguments);
    if (is_failure(outcome)) throw test_fault(text_of_outcome(outcome));
    return text_of_outcome(outcome);
}

std::string tested_application::take_picture(const std::string& eye) {
    const json outcome = outcome_of_call("openxr_capture_composited_image", {{"eye", eye}});
    if (is_failure(outcome)) throw test_fault(text_of_outcome(outcome));
    for (const json& each : outcome.at("result").value("content", json::array())) {
        if (each.value("type", "") == "image") return decode_base64(each.value("data", ""));
    }
    throw test_fault("no picture: " + text_of_outcome(outcome));
}

void tested_application::show_newest() {
    if (shows_newest_) simulator_.let_frames_pass(kFramesToShow);
}

const std::string& tested_application::renderer() {
    if (renderer_.empty()) renderer_ = settings_.renderer;
    if (!renderer_.empty()) return renderer_;
    const json info = mcp::parse_json(answer("openxr_get_instance_info", {{"include_enabled_extensions", true}}));
    const json enabled = info.is_object() ? info.value("enabled_extensions", json::array()) : json::array();
    renderer_ = renderer_name(enabled.get<std::vector<std::string>>(), machine_has_gpu());
    return renderer_;
}

}  // namespace velmoor
