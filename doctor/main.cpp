// velmoor-doctor: tells whether an agent could work with an application that is started from here, and what to do
// where it could not.
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "doctor/environment.h"
#include "doctor/examination.h"
#include "doctor/finding.h"

namespace {

constexpr char kUsage[] =
    "usage: velmoor-doctor [--json]\n"
    "\n"
    "Tells whether an MCP client could work with an OpenXR application that is started in this environment:\n"
    "looks for the OpenXR loader, the active runtime, the Velmoor layer and its switches, the extensions that\n"
    "the tools want, the server's port, and the place of the logs. Changes nothing.\n"
    "\n"
    "  --json      the findings as JSON\n"
    "  --help      this text\n"
    "  --version   the version\n"
    "\n"
    "Exit code: 0 if an agent could work, 1 if not, 2 if the command line is wrong.\n";

void Print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

int Run(bool as_json) {
    const orvanic_xr::Environment environment = orvanic_xr::CurrentEnvironment();
    const orvanic_xr::Findings findings = orvanic_xr::Examine(environment);
    const bool coloured = isatty(STDOUT_FILENO) != 0 && !orvanic_xr::ValueOf(environment, "NO_COLOR");
    Print(as_json ? orvanic_xr::ReportJson(findings) : orvanic_xr::ReportText(findings, coloured));
    return orvanic_xr::AgentCouldWork(findings) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) try {
    const std::string_view option = argc > 1 ? argv[1] : "";
    if (argc == 1) return Run(false);
    if (argc == 2 && option == "--json") return Run(true);
    if (argc == 2 && (option == "--help" || option == "-h")) return Print(kUsage), 0;
    if (argc == 2 && option == "--version") return Print("velmoor-doctor " VELMOOR_VERSION "\n"), 0;
    std::fputs(kUsage, stderr);
    return 2;
} catch (const std::exception& error) {
    std::fprintf(stderr, "velmoor-doctor: %s\n", error.what());
    return 1;
}
