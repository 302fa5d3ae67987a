// The results of tests, for machines and for people. Pure.
#pragma once

#include <string>
#include <vector>

#include "command/testing/test_run.h"

namespace velmoor {

std::string junit_report(const std::vector<test_result>& results, double seconds);
// One page that stands alone: it holds its pictures.
std::string html_report(const std::vector<test_result>& results, double seconds);

}  // namespace velmoor
