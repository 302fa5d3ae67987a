// `velmoor test`: goes through test files, several at a time, and writes what came of it.
#pragma once

#include <string>
#include <vector>

#include "command/testing/test_run.h"

namespace velmoor {

struct test_request {
    std::vector<std::string> files;
    int at_a_time = 1;
    int repeat = 1;
    int shard = 1;  // of `shards`, which share the files
    int shards = 1;
    std::string output = "velmoor-test";  // directory for reports, and for what failures leave
    run_settings run;
};

// "2/8". Throws std::runtime_error if it is none.
void take_shard(const std::string& text, test_request& into);

// Gives the exit code: 0, 1 if a test failed, 2 if the set-up of one did or a file is no test.
int run_tests(const test_request& request);

}  // namespace velmoor
