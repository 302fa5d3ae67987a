// What becomes of the pictures that the agent takes.
#pragma once

#include <chrono>
#include <string>

#include "examples/velmoor_agent/tool_call.h"

namespace agent {

// Writes the answer's picture to `file`, as PNG. Says why that could not be done, or nothing.
std::string SavePicture(const ToolAnswer& answer, const std::string& file);

// Films what the user sees: a picture every 160 milliseconds, as frame_001.png and so on.
class Film {
 public:
    // The directory has to be there. An empty name means that nothing is filmed.
    Film(mcp::blocking_client& client, std::string directory) : client_(client), directory_(std::move(directory)) {}

    // Takes a picture if one is due; to be called more often than that. One that can't be had is left out.
    void Shoot();

 private:
    mcp::blocking_client& client_;
    std::string directory_;
    int taken_ = 0;
    std::chrono::steady_clock::time_point due_{};
};

}  // namespace agent
