// Makes a test file of a recording, for somebody to edit. Pure.
#pragma once

#include <string>

#include "command/recording/recording.h"

namespace velmoor {

// Calls become steps, and what a read said an expectation. A part of a picture that was asked for becomes masks over
// the rest. A pause before a read becomes the read's waiting, and another one a wait for frames.
std::string test_of(const recording& what);

}  // namespace velmoor
