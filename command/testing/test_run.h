// Goes through one test with a fresh application, and tells what came of it.
#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "command/launch/launch_environment.h"
#include "command/testing/test_file.h"

namespace velmoor {

struct run_settings {
    std::vector<std::string> command;  // the application's
    launch_options launch;
    std::string version;   // of this program
    std::string renderer;  // what baselines call it; may be empty
    bool update = false;   // write the baselines, and compare nothing
    // Once it is true, a run ends soon, and its result says nothing. May be null.
    const std::atomic<bool>* is_stopped = nullptr;
};

enum class verdict {
    passed,
    failed,
    set_up_failed,  // the application never came into focus, died or hangs: says nothing of the test
};

// PNG files; empty where there is none.
struct step_pictures {
    std::string expected;
    std::string actual;
    std::string difference;
};

struct step_result {
    std::string title;
    verdict came_to = verdict::passed;
    double seconds = 0;
    std::string message;
    step_pictures pictures;
};

struct test_result {
    std::string name;
    std::string path;
    int repetition = 1;
    verdict came_to = verdict::passed;
    std::string message;  // with path and line, where it has not passed
    double seconds = 0;
    std::vector<step_result> steps;  // up to the first that has not passed
    std::string output;              // of the application and the layer, where it has not passed
    std::string last_picture;        // PNG, likewise; of the left eye
};

test_result run_test(const test_file& test, const run_settings& settings);

}  // namespace velmoor
