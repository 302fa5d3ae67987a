#include "doctor/finding.h"

#include <algorithm>
#include <cstddef>

#include "mcp/json.h"

namespace orvanic_xr {
namespace {

constexpr std::size_t kSubjectWidth = 11;
constexpr std::size_t kMarkWidth = 6;

struct MarkLook {
    const char* name;
    const char* colour;
};

MarkLook LookOf(Mark mark) {
    switch (mark) {
        case Mark::Ok:
            return {"ok", "\x1b[32m"};
        case Mark::Warn:
            return {"warn", "\x1b[33m"};
        default:
            return {"bad", "\x1b[31m"};
    }
}

// Texts come from files and peers that may mean ill: none of them reaches a terminal's controls.
std::string Printable(std::string text) {
    const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    std::replace_if(text.begin(), text.end(), is_control, '?');
    return text;
}

std::string Padded(std::string text, std::size_t width) {
    if (text.size() < width) text.resize(width, ' ');
    return text;
}

}  // namespace

bool AgentCouldWork(const Findings& findings) {
    return std::none_of(findings.begin(), findings.end(), [](const Finding& f) { return f.mark == Mark::Bad; });
}

std::string ReportText(const Findings& findings, bool coloured) {
    std::string report;
    for (const Finding& finding : findings) {
        const MarkLook look = LookOf(finding.mark);
        std::string mark = Padded(look.name, kMarkWidth);
        if (coloured) mark.insert(0, look.colour).append("\x1b[0m");
        report += mark + Padded(finding.subject, kSubjectWidth) + Printable(finding.text) + "\n";
        if (!finding.advice.empty()) {
            report += std::string(kMarkWidth + kSubjectWidth, ' ') + "-> " + Printable(finding.advice) + "\n";
        }
    }
    report += AgentCouldWork(findings) ? "An agent could work here.\n" : "An agent could not work here.\n";
    return report;
}

std::string ReportJson(const Findings& findings) {
    mcp::json list = mcp::json::array();
    for (const Finding& finding : findings) {
        list.push_back({{"mark", LookOf(finding.mark).name},
                        {"subject", finding.subject},
                        {"text", finding.text},
                        {"advice", finding.advice}});
    }
    return mcp::dump_json({{"agent_could_work", AgentCouldWork(findings)}, {"findings", list}}, 2) + "\n";
}

}  // namespace orvanic_xr
