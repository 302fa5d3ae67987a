// The application of one test: started for it, asked through a bridge of its own, and held between two steps where the
// simulator's clock stands.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "command/bridge/bridge.h"
#include "command/launch/simulator_link.h"
#include "command/launch/started_application.h"
#include "command/testing/test_file.h"
#include "command/testing/test_run.h"
#include "command/testing/test_time.h"

namespace velmoor {

// The application does something else than the test says.
struct test_fault : std::runtime_error {
    using std::runtime_error::runtime_error;
};
// The application can't be tested: it never came into focus, hangs, or the test was told to end.
struct set_up_fault : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class tested_application {
 public:
    // Both stay with the caller.
    tested_application(const test_file& test, const run_settings& settings);

    // Until it is in focus. Throws set_up_fault.
    void start(double seconds);
    void stop();
    const std::string& shown_command() const { return application_.shown_command(); }
    bool is_running() { return application_.is_running(); }
    // Also shortly after, which is when a call learns of it.
    bool has_ended();
    int exit_code() { return application_.exit_code().value_or(-1); }
    std::string output();

    // What came of it: `result` or `error`, as the bridge has it. Throws set_up_fault if there is no answer in time,
    // for which a tool that waits gets `more`, and test_fault if the application ended instead of answering.
    mcp::json outcome_of_call(const std::string& tool, const mcp::json& arguments, std::chrono::milliseconds more = {});
    // The text of an answer. Throws test_fault if the tool refuses.
    std::string answer(const std::string& tool, const mcp::json& arguments);
    // A PNG file.
    std::string take_picture(const std::string& eye);
    // Has what was set just before be drawn, where a picture would not show it otherwise.
    void show_newest();

    const test_time& time() const { return time_; }
    // Of the runtime, as it calls its system.
    const std::string& system() const { return system_; }
    // See `renderer_name`; what the settings call it comes first.
    const std::string& renderer();

 private:
    bridge_settings bridge_of();
    bool is_stopped() const { return settings_.is_stopped && *settings_.is_stopped; }

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
    std::string renderer_;
    bridge bridge_;  // last: its thread uses the application
};

std::string text_of_outcome(const mcp::json& outcome);

}  // namespace velmoor
