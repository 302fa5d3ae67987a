#include "command/testing/test_run.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include "command/app_tools.h"
#include "command/applications/finder.h"
#include "command/bridge/bridge.h"
#include "command/bridge/pending_call.h"
#include "command/bridge/pictures.h"
#include "command/bridge/results.h"
#include "command/bridge/tool_list.h"
#include "command/launch/simulator_link.h"
#include "command/launch/started_application.h"
#include "command/sim_tools.h"
#include "command/testing/test_time.h"
#include "command/xr/xr_tools.h"
#include "mcp/client/blocking_client.h"
#include "mcp/server_host.h"

namespace velmoor {
namespace {

namespace fs = std::filesystem;
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
constexpr double kPictureSeconds = 3;
// Until what was set is drawn, also by an application that works at two frames at a time.
constexpr std::uint64_t kFramesToShow = 2;
// Of a wait that names no limit: for the simulator's first frames, and for frames that are drawn slowly.
constexpr double kWaitSeconds = 10;
// Where time stands, a busy machine changes nothing but how long it takes.
constexpr double kStandingWaitSeconds = 60;
constexpr double kLeastFramesPerSecond = 5;
constexpr std::size_t kOutputLines = 400;

struct test_fault : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct set_up_fault : std::runtime_error {
    using std::runtime_error::runtime_error;
};

milliseconds from_seconds(double seconds) {
    return milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

double seconds_since(clock::time_point begin) {
    return std::chrono::duration<double>(clock::now() - begin).count();
}

std::string title_of(const test_step& step) {
    switch (step.kind) {
        case step_kind::say:
            return step.name;
        case step_kind::call:
            return "call " + step.name + " " + mcp::dump_json(step.arguments);
        case step_kind::wait:
            return "wait " + mcp::dump_json(step.arguments);
        case step_kind::expect:
            return "expect " + step.name + " " + mcp::dump_json(step.arguments);
        case step_kind::picture:
            return "picture " + step.name + ", " + step.eye + " eye";
    }
    return {};
}

std::string for_file_name(std::string text) {
    for (char& each : text) each = std::isalnum(static_cast<unsigned char>(each)) != 0 ? each : '-';
    return text;
}

// The simulator's clock; with `fixed` and `stepped`, the application is held between two steps.
std::string clock_of(const launch_options& options) {
    environment variables = current_environment();
    for (const auto& [name, value] : options.variables) variables[name] = value;
    return options.simulator ? variables["VELMOOR_SIM_CLOCK"] : std::string();
}

bool is_held(const launch_options& options) {
    return clock_of(options) == "fixed" || clock_of(options) == "stepped";
}

class test_runner {
 public:
    test_runner(const test_file& test, const run_settings& settings)
        : test_(test),
          settings_(settings),
          options_(launch_of(test, settings, control_.text())),
          shows_newest_(clock_of(with_variables(test, settings)) == "fixed"),
          application_(settings.command, options_),
          time_(
              is_held(options_) ? &simulator_ : nullptr, [this] { return bridge_.process_for({}); },
              [this] {
                  pending_call(bridge_, call_of("openxr_get_instance_info", json::object())).wait_for(kAskLimit);
              }),
          bridge_(bridge_of()) {
        bridge_.introduce({{"name", "velmoor test"}, {"version", settings.version}});
        bridge_.expect_calls();
    }

    test_result run() {
        test_result made;
        made.name = test_.name;
        made.path = test_.path;
        const auto begin = clock::now();
        take(made, "start " + application_.shown_command(), 1, [this](step_result&) { start(); });
        for (const test_step& each : test_.steps) {
            if (made.came_to != verdict::passed) break;
            take(made, title_of(each), each.line, [&](step_result& result) { go(each, result); });
        }
        if (made.came_to != verdict::passed) keep_traces(made);
        bridge_.stop();
        application_.stop();
        made.seconds = seconds_since(begin);
        return made;
    }

 private:
    static launch_options with_variables(const test_file& test, const run_settings& settings) {
        launch_options options = settings.launch;
        for (const auto& [name, value] : test.environment) options.variables[name] = value;
        return options;
    }

    static launch_options launch_of(const test_file& test, const run_settings& settings, const std::string& control) {
        launch_options options = with_variables(test, settings);
        if (options.simulator) options.control = control;
        if (is_held(options)) options.variables["VELMOOR_SIM_CLOCK"] = "stepped";
        return options;
    }

    // Of all applications on this machine, that of this test alone.
    bridge_settings bridge_of() {
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

    template <typename Work>
    void take(test_result& into, std::string title, int line, const Work& work) {
        step_result result;
        result.title = std::move(title);
        const auto begin = clock::now();
        try {
            work(result);
        } catch (const set_up_fault& e) {
            result.came_to = verdict::set_up_failed;
            result.message = e.what();
        } catch (const std::exception& e) {
            result.came_to = verdict::failed;
            result.message = e.what();
            if (has_ended()) {
                result.came_to = verdict::set_up_failed;
                result.message = "the application died with exit code " +
                                 std::to_string(application_.exit_code().value_or(-1)) + ": " + result.message;
            }
        }
        result.seconds = seconds_since(begin);
        into.came_to = result.came_to;
        if (result.came_to != verdict::passed) {
            into.message = test_.path + ":" + std::to_string(line) + ": " + result.title + ": " + result.message;
        }
        into.steps.push_back(std::move(result));
    }

    bool has_ended() {
        const auto deadline = clock::now() + kEndSeen;
        while (application_.is_running() && clock::now() < deadline) std::this_thread::sleep_for(kBetweenLooks);
        return !application_.is_running();
    }

    void start() {
        const json outcome =
            outcome_of_call("app_start", {{"timeout_seconds", test_.start_seconds}}, from_seconds(test_.start_seconds));
        if (is_failure(outcome)) throw set_up_fault(text_of_outcome(outcome));
        const json info = mcp::parse_json(answer("openxr_get_system_info", json::object()));
        system_ = info.is_object() ? info.value("system_name", "unknown") : "unknown";
    }

    void go(const test_step& step, step_result& result) {
        if (step.kind == step_kind::call) call(step);
        if (step.kind == step_kind::wait) wait(step);
        if (step.kind == step_kind::expect) expect(step);
        if (step.kind == step_kind::picture) picture(step, result);
    }

    json outcome_of_call(const std::string& tool, const json& arguments, milliseconds more = {}) {
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

    bool is_stopped() const { return settings_.is_stopped && *settings_.is_stopped; }

    static tool_call call_of(const std::string& tool, const json& arguments) {
        return {.name = tool, .arguments = arguments, .done = nullptr, .report = nullptr};
    }

    static std::string text_of_outcome(const json& outcome) {
        if (outcome.contains("error")) return outcome["error"].value("message", "the call failed");
        return mcp::text_of(outcome.at("result"));
    }

    std::string answer(const std::string& tool, const json& arguments) {
        const json outcome = outcome_of_call(tool, arguments);
        if (is_failure(outcome)) throw test_fault(text_of_outcome(outcome));
        return text_of_outcome(outcome);
    }

    void call(const test_step& step) {
        const json outcome = outcome_of_call(step.name, step.arguments);
        const std::string text = text_of_outcome(outcome);
        if (is_failure(outcome) != step.shall_fail) {
            throw test_fault(step.shall_fail ? "it should fail, and answers " + text : text);
        }
        for (const value_check& each : step.checks) {
            if (const auto fault = fault_of(each, text)) throw test_fault(*fault);
        }
    }

    void wait(const test_step& step) {
        json arguments = step.arguments;
        if (!arguments.contains("timeout_seconds")) {
            const json frames = arguments.value("frames", json());
            const double drawn = frames.is_number() ? std::clamp(frames.get<double>(), 0.0, 1e6) : 0;
            const double usual = time_.stands() ? kStandingWaitSeconds : kWaitSeconds;
            arguments["timeout_seconds"] = std::min(usual + drawn / kLeastFramesPerSecond, 600.0);
        }
        const double limit = arguments["timeout_seconds"].get<double>();
        const json outcome = outcome_of_call("xr_wait", arguments, from_seconds(limit));
        if (is_failure(outcome)) throw test_fault(text_of_outcome(outcome));
    }

    void expect(const test_step& step) {
        for (test_time::span span(time_, step.timeout_seconds);; span.pass()) {
            std::string faults;
            const json outcome = outcome_of_call(step.name, step.arguments);
            const std::string text = text_of_outcome(outcome);
            if (is_failure(outcome)) faults = text;
            for (const value_check& each : step.checks) {
                if (const auto fault = fault_of(each, text)) faults += (faults.empty() ? "" : "; ") + *fault;
            }
            if (faults.empty()) return;
            if (span.is_over() || !application_.is_running()) throw test_fault(faults);
        }
    }

    std::string take_picture(const std::string& eye) {
        const json outcome = outcome_of_call("openxr_capture_composited_image", {{"eye", eye}});
        if (is_failure(outcome)) throw test_fault(text_of_outcome(outcome));
        for (const json& each : outcome.at("result").value("content", json::array())) {
            if (each.value("type", "") == "image") return decode_base64(each.value("data", ""));
        }
        throw test_fault("no picture: " + text_of_outcome(outcome));
    }

    fs::path baseline_of(const test_step& step) const {
        const fs::path test(test_.path);
        std::string name = step.name + "." + for_file_name(system_);
        if (!settings_.renderer.empty()) name += "." + for_file_name(settings_.renderer);
        return test.parent_path() / "baselines" / test.stem() / (name + "." + step.eye + ".png");
    }

    // What moves comes to rest: the picture has that long to be as expected.
    void picture(const test_step& step, step_result& result) {
        const fs::path file = baseline_of(step);
        if (shows_newest_) simulator_.let_frames_pass(kFramesToShow);
        if (settings_.update) return update(step, file);
        std::ostringstream bytes;
        bytes << std::ifstream(file, std::ios::binary).rdbuf();
        result.pictures.expected = bytes.str();
        for (test_time::span span(time_, kPictureSeconds);; span.pass()) {
            result.pictures.actual = take_picture(step.eye);
            if (result.pictures.expected.empty()) {
                throw test_fault("there is no baseline " + file.string() + "; --update writes it");
            }
            const comparison made =
                compare(read_png(result.pictures.expected), read_png(result.pictures.actual), step.limits);
            result.message = made.message;
            if (made.is_same) break;
            if (!span.is_over() && application_.is_running()) continue;
            if (made.difference.width > 0) result.pictures.difference = write_png(made.difference);
            throw test_fault(made.message + "; baseline " + file.string());
        }
        result.pictures = {};  // nobody looks at those that are alike
    }

    // Where time stands, the picture is the one that a test sees first, and it takes no frames that the test would not.
    void update(const test_step& step, const fs::path& file) {
        const auto deadline = clock::now() + from_seconds(time_.stands() ? 0 : kPictureSeconds);
        std::string last = take_picture(step.eye);
        for (std::string next; clock::now() < deadline; last = std::move(next)) {
            next = take_picture(step.eye);
            if (compare(read_png(last), read_png(next), step.limits).is_same) break;
        }
        if (is_blank(read_png(last))) throw test_fault("the picture is blank, and makes no baseline");
        fs::create_directories(file.parent_path());
        std::ofstream written(file, std::ios::binary);
        written << last << std::flush;
        if (!written) throw std::runtime_error(file.string() + " can't be written");
    }

    void keep_traces(test_result& into) {
        if (application_.is_running() && into.came_to == verdict::failed) {
            try {
                into.last_picture = take_picture("left");
            } catch (const std::exception&) {
                into.last_picture.clear();  // an application that shows nothing has none
            }
        }
        for (const output_line& each : application_.output(kOutputLines, 0)) into.output += each.text + "\n";
    }

    const test_file& test_;
    const run_settings& settings_;
    // Not the one of the environment: several tests run at a time.
    const control_path control_ = control_path::of_our_own();
    const launch_options options_;
    const bool shows_newest_;  // pictures show what was set just before
    simulator_link simulator_{control_.text()};
    started_application application_;
    const test_time time_;
    std::set<std::string> our_tools_;  // and not the application's
    std::string system_;
    bridge bridge_;  // last: its thread uses the application
};

}  // namespace

test_result run_test(const test_file& test, const run_settings& settings) {
    return test_runner(test, settings).run();
}

}  // namespace velmoor
