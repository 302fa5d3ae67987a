#include "examples/velmoor_agent/tour.h"

#include <fstream>
#include <ostream>
#include <set>
#include <thread>

#include "examples/velmoor_agent/base64.h"
#include "examples/velmoor_agent/transcript.h"

namespace agent {
namespace {

constexpr auto kBetweenTries = std::chrono::milliseconds(100);

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

// Says why the picture could not be kept, or nothing.
std::string SavePicture(const ToolAnswer& answer, const std::string& file, std::ostream& out) {
    if (answer.images.empty()) return "there is no picture in the answer";
    const std::string png = DecodeBase64(answer.images.front());
    std::ofstream stream(file, std::ios::binary);
    stream.write(png.data(), static_cast<std::streamsize>(png.size()));
    stream.close();
    if (!stream) return "cannot write " + file;
    out << "      saved as " << file << "\n";
    return "";
}

bool TakeStep(McpClient& client, const TourStep& step, std::ostream& out) {
    const json arguments = step.late_arguments ? step.late_arguments() : step.arguments;
    PrintCall(out, step.tool, arguments);
    const auto give_up = std::chrono::steady_clock::now() + step.patience;
    ToolAnswer answer = client.CallTool(step.tool, arguments);
    std::string complaint = Complain(step, answer);
    while (!complaint.empty() && std::chrono::steady_clock::now() < give_up) {
        std::this_thread::sleep_for(kBetweenTries);
        answer = client.CallTool(step.tool, arguments);
        complaint = Complain(step, answer);
    }
    PrintAnswer(out, answer);
    if (complaint.empty() && !step.picture_file.empty()) complaint = SavePicture(answer, step.picture_file, out);
    if (!complaint.empty()) out << "   FAILED: " << complaint << "\n";
    return complaint.empty();
}

}  // namespace

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
