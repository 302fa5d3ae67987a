#include "examples/velmoor_agent/tour.h"

#include <future>
#include <set>
#include <thread>

#include "examples/velmoor_agent/pictures.h"

namespace agent {
namespace {

constexpr auto kBetweenTries = std::chrono::milliseconds(100);
constexpr auto kBetweenLooks = std::chrono::milliseconds(20);

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

ToolAnswer Call(mcp::blocking_client& client, const std::string& tool, const json& arguments, const Company& company) {
    auto answer = std::async(std::launch::async, [&] { return CallTool(client, tool, arguments); });
    while (answer.wait_for(kBetweenLooks) != std::future_status::ready) company.while_waiting();
    return answer.get();
}

constexpr char kCapture[] = "openxr_capture_composited_image";

// Beside the steps: what can't be had is told, and is no failure.
void Look(mcp::blocking_client& client, const std::string& file, Transcript& transcript) {
    const std::string complaint = SavePicture(CallTool(client, kCapture, {{"eye", "left"}}), file);
    transcript.Remark(complaint.empty() ? "seen as " + file : complaint);
}

bool TakeStep(mcp::blocking_client& client, const TourStep& step, const Company& company, Transcript& transcript) {
    const json arguments = step.late_arguments ? step.late_arguments() : step.arguments;
    transcript.Call(step.tool, arguments);
    const auto give_up = std::chrono::steady_clock::now() + step.patience;
    ToolAnswer answer = Call(client, step.tool, arguments, company);
    std::string complaint = Complain(step, answer);
    while (!complaint.empty() && std::chrono::steady_clock::now() < give_up) {
        std::this_thread::sleep_for(kBetweenTries);
        answer = Call(client, step.tool, arguments, company);
        complaint = Complain(step, answer);
    }
    transcript.Answer(answer);
    if (complaint.empty() && !step.picture_file.empty()) {
        complaint = SavePicture(answer, step.picture_file);
        if (complaint.empty()) transcript.Remark("saved as " + step.picture_file);
    }
    if (!complaint.empty()) transcript.Failure(complaint);
    return complaint.empty();
}

}  // namespace

bool RunTour(mcp::blocking_client& client, const std::vector<TourStep>& steps, const Company& company,
             Transcript& transcript) {
    std::set<std::string> offered;
    const json list = client.request("tools/list", json::object());
    for (const json& tool : list.at("tools")) offered.insert(tool.at("name"));
    transcript.Tools(offered);

    int number = 0;
    int skipped = 0;
    int failed = 0;
    for (const TourStep& step : steps) {
        transcript.Heading(std::to_string(++number) + ". " + step.title);
        if (offered.count(step.tool) == 0) {
            ++skipped;
            transcript.Remark("skipped: the server does not offer " + step.tool);
            company.after_step();
            continue;
        }
        const bool is_seen = !step.seen_as.empty() && offered.count(kCapture) > 0;
        if (is_seen) Look(client, step.seen_as + "_before.png", transcript);
        if (!TakeStep(client, step, company, transcript)) ++failed;
        company.after_step();
        if (is_seen) Look(client, step.seen_as + "_after.png", transcript);
    }
    transcript.Heading("The tour is over: " + std::to_string(number - skipped - failed) + " steps done, " +
                       std::to_string(skipped) + " skipped, " + std::to_string(failed) + " failed.");
    return failed == 0;
}

}  // namespace agent
