// What the doctor found, and how it is told.
#pragma once

#include <string>
#include <vector>

namespace orvanic_xr {

enum class Mark {
    Ok,
    Warn,  // an agent can work, with less than it could have
    Bad,   // an agent can't work
};

struct Finding {
    Mark mark;
    std::string subject;  // one word
    std::string text;
    std::string advice;  // what to do about it; may be empty if it is well
};

using Findings = std::vector<Finding>;

bool AgentCouldWork(const Findings& findings);

// One line for each finding and one for its advice, and the verdict.
std::string ReportText(const Findings& findings, bool coloured);
std::string ReportJson(const Findings& findings);

}  // namespace orvanic_xr
