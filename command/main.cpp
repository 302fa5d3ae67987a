// velmoor: one command for people and agents. Each subcommand is a few lines over a library; see `velmoor --help`.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include "command/applications/finder.h"
#include "command/bridge/tool_list.h"
#include "command/stdio_transport.h"
#include "mcp/server_host.h"

namespace {

struct bridge_options {
    double wait_seconds = 10;
};

velmoor::bridge_settings settings_for(const bridge_options& options) {
    velmoor::bridge_settings settings;
    settings.around = velmoor::surroundings_of_machine(orvanic_xr::kMcpServerPort);
    settings.version = VELMOOR_VERSION;
    settings.wait = std::chrono::milliseconds(static_cast<std::int64_t>(options.wait_seconds * 1000));
    settings.tools_file = velmoor::default_tools_file();
    return settings;
}

void add_bridge_options(CLI::App& command, bridge_options& options) {
    command.add_option("--wait", options.wait_seconds, "Seconds that a call waits for an application")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 3600.0));
}

int serve_client(const bridge_options& options) {
    velmoor::bridge bridge(settings_for(options));
    velmoor::serve_stdio(bridge, {{"name", "velmoor"}, {"version", VELMOOR_VERSION}}, STDIN_FILENO, STDOUT_FILENO);
    return 0;
}

}  // namespace

int main(int argc, char** argv) try {
    std::signal(SIGPIPE, SIG_IGN);  // who does not read any more is seen when writing to him
    CLI::App app("Lets agents and people see and operate XR applications that run with the Velmoor layer.", "velmoor");
    app.set_version_flag("--version", "velmoor " VELMOOR_VERSION);
    app.require_subcommand(1);

    bridge_options options;
    CLI::App* const mcp = app.add_subcommand("mcp", "Serves one MCP client on standard input and output");
    mcp->footer("Example:\n  claude mcp add velmoor -- velmoor mcp");
    add_bridge_options(*mcp, options);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    return serve_client(options);
} catch (const std::exception& e) {
    std::fprintf(stderr, "velmoor: %s\n", e.what());
    return 1;
}
