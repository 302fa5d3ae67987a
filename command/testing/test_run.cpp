#include "command/testing/test_run.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include "command/bridge/results.h"
#include "command/testing/baselines.h"
#include "command/testing/tested_application.h"

namespace velmoor {
namespace {

namespace fs = std::filesystem;
using clock = std::chrono::steady_clock;

constexpr double kPictureSeconds = 3;
// Of a wait that names no limit: for the simulator's first frames, and for frames that are drawn slowly.
constexpr double kWaitSeconds = 10;
// Where time stands, a busy machine changes nothing but how long it takes.
constexpr double kStandingWaitSeconds = 60;
constexpr double kLeastFramesPerSecond = 5;

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

class test_runner {
 public:
    test_runner(const test_file& test, const run_settings& settings)
        : test_(test), settings_(settings), application_(test, settings) {}

    test_result run() {
        test_result made;
        made.name = test_.name;
        made.path = test_.path;
        const auto begin = clock::now();
        take(made, "start " + application_.shown_command(), 1,
             [this](step_result&) { application_.start(test_.start_seconds); });
        for (const test_step& each : test_.steps) {
            if (made.came_to != verdict::passed) break;
            take(made, title_of(each), each.line, [&](step_result& result) { go(each, result); });
        }
        if (made.came_to != verdict::passed) keep_traces(made);
        application_.stop();
        made.seconds = seconds_since(begin);
        return made;
    }

 private:
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
            if (application_.has_ended()) {
                result.came_to = verdict::set_up_failed;
                result.message = "the application died with exit code " + std::to_string(application_.exit_code()) +
                                 ": " + result.message;
            }
        }
        result.seconds = seconds_since(begin);
        into.came_to = result.came_to;
        if (result.came_to != verdict::passed) {
            into.message = test_.path + ":" + std::to_string(line) + ": " + result.title + ": " + result.message;
        }
        into.steps.push_back(std::move(result));
    }

    void go(const test_step& step, step_result& result) {
        if (step.kind == step_kind::call) call(step);
        if (step.kind == step_kind::wait) wait(step);
        if (step.kind == step_kind::expect) expect(step);
        if (step.kind == step_kind::picture) picture(step, result);
    }

    void call(const test_step& step) {
        const json outcome = application_.outcome_of_call(step.name, step.arguments);
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
            const double usual = application_.time().stands() ? kStandingWaitSeconds : kWaitSeconds;
            arguments["timeout_seconds"] = std::min(usual + drawn / kLeastFramesPerSecond, 600.0);
        }
        const double limit = arguments["timeout_seconds"].get<double>();
        const json outcome = application_.outcome_of_call("xr_wait", arguments, from_seconds(limit));
        if (is_failure(outcome)) throw test_fault(text_of_outcome(outcome));
    }

    void expect(const test_step& step) {
        for (test_time::span span(application_.time(), step.timeout_seconds);; span.pass()) {
            std::string faults;
            const json outcome = application_.outcome_of_call(step.name, step.arguments);
            const std::string text = text_of_outcome(outcome);
            if (is_failure(outcome)) faults = text;
            for (const value_check& each : step.checks) {
                if (const auto fault = fault_of(each, text)) faults += (faults.empty() ? "" : "; ") + *fault;
            }
            if (faults.empty()) return;
            if (span.is_over() || !application_.is_running()) throw test_fault(faults);
        }
    }

    // What moves comes to rest: the picture has that long to be as expected.
    void picture(const test_step& step, step_result& result) {
        const fs::path file =
            baseline_path(test_.path, {step.name, application_.system(), application_.renderer(), step.eye});
        application_.show_newest();
        if (settings_.update) return update(step, file);
        std::ostringstream bytes;
        bytes << std::ifstream(file, std::ios::binary).rdbuf();
        result.pictures.expected = bytes.str();
        for (test_time::span span(application_.time(), kPictureSeconds);; span.pass()) {
            result.pictures.actual = application_.take_picture(step.eye);
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
        const auto deadline = clock::now() + from_seconds(application_.time().stands() ? 0 : kPictureSeconds);
        std::string last = application_.take_picture(step.eye);
        for (std::string next; clock::now() < deadline; last = std::move(next)) {
            next = application_.take_picture(step.eye);
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
                into.last_picture = application_.take_picture("left");
            } catch (const std::exception&) {
                into.last_picture.clear();  // an application that shows nothing has none
            }
        }
        into.output = application_.output();
    }

    const test_file& test_;
    const run_settings& settings_;
    tested_application application_;
};

}  // namespace

test_result run_test(const test_file& test, const run_settings& settings) {
    return test_runner(test, settings).run();
}

}  // namespace velmoor
