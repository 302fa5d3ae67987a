// The demo's tour: what the agent asks of the application, step by step.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "examples/velmoor_agent/tool_call.h"
#include "examples/velmoor_agent/transcript.h"

namespace agent {

struct TourStep {
    std::string title;
    std::string tool;
    json arguments = json::object();
    // Says what is wrong with the answer, or nothing. The answer is the tool's text as JSON, or as a JSON string
    // where it is none; a check may throw when a key is missing. Without a check only a broken tool fails.
    std::function<std::string(const json& answer)> complaint = nullptr;
    // A step that fails its check is taken again for so long: an application needs a moment to come up.
    std::chrono::milliseconds patience{0};
    // Arguments that an earlier answer decides, in place of `arguments`.
    std::function<json()> late_arguments = nullptr;
    // Where the picture of the answer goes, as a PNG file; an answer without one then fails the step.
    std::string picture_file = {};
    // An act that can be seen: pictures of what the user sees before and after it go to files that begin with this.
    std::string seen_as = {};
};

// The steps of the tour, in order. Pictures go to `picture_directory`; the last step ends the application if
// `exit_at_end` is set. In tour_steps.cpp.
std::vector<TourStep> MakeTour(const std::string& picture_directory, bool exit_at_end);

// What goes on beside the steps, on the thread that takes them.
struct Company {
    // Again and again, for as long as a tool takes to answer.
    std::function<void()> while_waiting = [] {};
    std::function<void()> after_step = [] {};
};

// Takes the steps one after the other and shows what is asked and answered. A step whose tool the server does
// not offer is skipped with a line that says so. True if no step failed.
bool RunTour(mcp::blocking_client& client, const std::vector<TourStep>& steps, const Company& company,
             Transcript& transcript);

}  // namespace agent
