// A test as it stands in a YAML file: an application's settings and the steps to go through with it.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "command/pictures/comparison.h"
#include "command/testing/check.h"

namespace velmoor {

enum class step_kind {
    say,      // tells what follows
    call,     // a tool, once; `checks` look at its answer
    wait,     // for a state, frames or a value, as xr_wait does
    expect,   // reads with a tool until all `checks` hold
    picture,  // compares what an eye sees
};

struct test_step {
    step_kind kind = step_kind::say;
    int line = 0;
    std::string name;  // the text, the tool, or the picture's name
    json arguments = json::object();
    std::vector<value_check> checks;
    bool shall_fail = false;      // of a call
    double timeout_seconds = 10;  // of wait and expect
    std::string eye = "left";
    comparison_limits limits;
};

struct test_file {
    std::string path;
    std::string name;
    std::map<std::string, std::string, std::less<>> environment;  // of the application, beside what it has
    double start_seconds = 30;
    std::vector<test_step> steps;
};

// Throws std::runtime_error with the path, the line and the reason.
test_file parse_test(std::string_view text, const std::string& path);
test_file read_test(const std::string& path);

}  // namespace velmoor
