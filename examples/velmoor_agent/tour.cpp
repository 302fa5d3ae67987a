#include "examples/velmoor_agent/tour.h"

#include <memory>
#include <ostream>
#include <set>
#include <thread>

#include "examples/velmoor_agent/transcript.h"

namespace agent {
namespace {

constexpr auto kComingUp = std::chrono::seconds(10);
constexpr auto kBetweenTries = std::chrono::milliseconds(100);

std::string Expect(bool holds, const char* otherwise) {
    return holds ? "" : otherwise;
}

std::string IsRunning(const json& answer) {
    const std::string state = answer.at("state").at("name");
    return Expect(state == "XR_SESSION_STATE_FOCUSED", "the session does not have the focus");
}

// Two steps that look at the frame share the time of the one that came first.
std::vector<TourStep> FrameSteps() {
    const auto first_time = std::make_shared<std::int64_t>(0);
    const auto display_time = [](const json& answer) -> std::int64_t {
        return answer.at("frame_state").at("predicted_display_time").at("XrTime");
    };
    const auto remember = [=](const json& answer) {
        *first_time = display_time(answer);
        return Expect(*first_time > 0, "the frame has no display time");
    };
    const auto went_by = [=](const json& answer) {
        return Expect(display_time(answer) > *first_time, "no frame went by since");
    };
    return {
        {"See the last frame", "openxr_get_frame_info", json::object(), remember, kComingUp},
        {"See that frames go by", "openxr_get_frame_info", json::object(), went_by, kComingUp},
    };
}

// A check reads keys that a wrong answer lacks; that is a complaint too.
std::string Complain(const TourStep& step, const ToolAnswer& answer) {
    if (answer.is_error) return "the tool failed";
    if (!step.complaint) return "";
    try {
        return step.complaint(ParseAnswer(answer));
    } catch (const json::exception& problem) {
        return problem.what();
    }
}

bool TakeStep(McpClient& client, const TourStep& step, std::ostream& out) {
    PrintCall(out, step.tool, step.arguments);
    const auto give_up = std::chrono::steady_clock::now() + step.patience;
    ToolAnswer answer = client.CallTool(step.tool, step.arguments);
    std::string complaint = Complain(step, answer);
    while (!complaint.empty() && std::chrono::steady_clock::now() < give_up) {
        std::this_thread::sleep_for(kBetweenTries);
        answer = client.CallTool(step.tool, step.arguments);
        complaint = Complain(step, answer);
    }
    PrintAnswer(out, answer);
    if (!complaint.empty()) out << "   FAILED: " << complaint << "\n";
    return complaint.empty();
}

}  // namespace

std::vector<TourStep> MakeTour() {
    std::vector<TourStep> tour = {
        {"Ask which application this is",
         "openxr_get_instance_info",
         {{"include_enabled_extensions", true}},
         [](const json& answer) { return Expect(answer.at("application").at("name") != "", "it has no name"); },
         kComingUp},
        {"Wait until its session has the focus", "openxr_get_session_info", json::object(), IsRunning, kComingUp},
        {"Ask what device it runs on", "openxr_get_system_info", json::object(),
         [](const json& answer) { return Expect(answer.at("system_name") != "", "it has no name"); }, kComingUp},
    };
    for (TourStep& step : FrameSteps()) tour.push_back(std::move(step));
    return tour;
}

bool RunTour(McpClient& client, const std::vector<TourStep>& steps, std::ostream& out) {
    std::set<std::string> offered;
    for (const json& tool : client.ListTools()) offered.insert(tool.at("name"));
    PrintTools(out, offered);

    int number = 0;
    int skipped = 0;
    int failed = 0;
    for (const TourStep& step : steps) {
        out << "\n" << ++number << ". " << step.title << "\n";
        if (offered.count(step.tool) == 0) {
            ++skipped;
            out << "   skipped: the server does not offer " << step.tool << "\n";
        } else if (!TakeStep(client, step, out)) {
            ++failed;
        }
        out << std::flush;
    }
    out << "\nThe tour is over: " << number - skipped - failed << " steps done, " << skipped << " skipped, " << failed
        << " failed.\n";
    return failed == 0;
}

}  // namespace agent
