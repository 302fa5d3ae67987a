// Makes a test file of a recording, for somebody to edit. Pure.
#pragma once

#include <string>

#include "command/recording/recording.h"

namespace velmoor {

std::string test_of(const recording& what);

}  // namespace velmoor
