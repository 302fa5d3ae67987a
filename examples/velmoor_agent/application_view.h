// The other side of the conversation: what the application prints while the agent works.
#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "examples/velmoor_agent/transcript.h"

namespace agent {

class ApplicationView {
 public:
    // `file` takes what the application prints, as velmoor_demo does it. An empty name means that there is nothing
    // to see.
    ApplicationView(const std::string& file, Transcript& transcript);

    // Shows what was printed since the last time, but for the lines of the layer.
    void Show();

    // The same, and what follows, until the application has been silent for a moment: what a step brought about.
    void Settle();

    // Tells how fast the application's frames went by all the time, if it said so.
    void Summary();

 private:
    std::vector<std::string> NewLines();
    void ShowLine(const std::string& line);

    std::ifstream stream_;
    std::string unfinished_;  // line
    std::string report_;      // its first line, until the second comes
    Transcript& transcript_;
    std::vector<double> frame_rates_;  // one for each second
};

}  // namespace agent
