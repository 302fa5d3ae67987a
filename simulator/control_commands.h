// What a controller asks of the running simulator: one JSON object, told in docs/simulator.md.
#pragma once

#include <nlohmann/json.hpp>

namespace simulator {

class Runtime;

struct Obeyed {
    // The answer waits until the application is held.
    bool waits = false;
    // Whoever asked is to be there for as long as the application is held.
    bool holds = false;
    // Likewise, for as long as frames that are needed wait for more that need them.
    bool gathers = false;
};

// Throws std::runtime_error with a text for who asked, and then has changed nothing. Needs the runtime's mutex.
Obeyed Obey(Runtime& runtime, const nlohmann::json& request);

// Whether the application has done all its frames and waits for the next one, or has none to wait for. Needs the mutex.
bool IsStill(const Runtime& runtime);

// The answer to a request that was obeyed. Needs the mutex.
nlohmann::json DescribeState(const Runtime& runtime);

}  // namespace simulator
