// What happens to a headset and its wearer, and what applications rarely meet in a test.
#pragma once

#include <string>

namespace simulator {

struct Session;

// Throws std::runtime_error with a text for who asked, and then nothing has happened. `hand` is "left" or "right" for
// what happens to a controller. Needs the runtime's mutex.
void Happen(Session& session, const std::string& event, const std::string& hand);

}  // namespace simulator
