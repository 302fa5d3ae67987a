#include "command/serving.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "command/app_tools.h"
#include "command/applications/finder.h"
#include "command/bridge/tool_list.h"
#include "command/http_transport.h"
#include "command/launch/simulator_link.h"
#include "command/recording/recorder.h"
#include "command/sim_tools.h"
#include "command/stdio_transport.h"
#include "command/watch_page.h"
#include "command/xr/xr_tools.h"
#include "mcp/server_host.h"

namespace velmoor {
namespace {

bool is_loopback(const std::string& host) {
    return host == "localhost" || host == "::1" || host.starts_with("127.");
}

// What a recording tells of its circumstances: no arguments and no other variables, which may hold secrets.
json recording_header(const options& given) {
    json header{{"velmoor", VELMOOR_VERSION}, {"simulator", !given.no_simulator}};
    if (!given.application.empty()) {
        header["application"] = given.application[0].substr(given.application[0].rfind('/') + 1);
    }
    for (const auto& [name, value] : current_environment()) {
        if (name.starts_with("VELMOOR_SIM_")) header["environment"][name] = value;
    }
    return header;
}

std::shared_ptr<recorder> recorder_for(const options& given, bridge_settings& settings) {
    if (given.record.empty()) return nullptr;
    auto made = std::make_shared<recorder>(recorder_settings{
        .directory = given.record, .limit = given.record_limit << 20, .header = recording_header(given)});
    settings.watch = [made](tool_call call) { return made->watched(std::move(call)); };
    return made;
}

// The application of the command line, and how it is controlled where it runs on the simulator.
struct given_application {
    explicit given_application(options given)
        : started(given.application, [&] {
              if (!given.no_simulator) given.control = control.text();
              return launch_options_of(given);
          }()) {}

    control_path control;
    simulator_link simulator{control.text()};
    started_application started;
};

// Likewise, with the tools for the application that was given, if one was.
bridge_settings settings_for(const options& given, std::unique_ptr<given_application>& application) {
    bridge_settings settings = settings_for(given);
    if (given.application.empty()) return settings;
    application = std::make_unique<given_application>(given);
    settings.own_tools = xr_tools(&application->started);
    const auto add = [&](std::vector<own_tool> tools) {
        for (own_tool& each : tools) settings.own_tools.push_back(std::move(each));
    };
    add(app_tools(application->started));
    if (!given.no_simulator) {
        add(sim_tools(application->simulator));
        settings.gather = [&its = application->simulator](bool is_wanted) { return its.gather(is_wanted); };
        settings.let_frame_pass = [&its = application->simulator] { return its.let_frames_pass(); };
    }
    settings.hint = [] { return "The tool app_start starts the application; app_output shows what it printed."; };
    return settings;
}

// A page that can't be served keeps nobody from serving the client.
bool start_watch(int port, watch_server& server) {
    if (port < 0) return false;
    const int bound = server.start(port);
    if (bound == 0) std::fprintf(stderr, "velmoor: port %d is taken; there is no page to watch\n", port);
    if (bound != 0) std::fprintf(stderr, "velmoor: watch at http://127.0.0.1:%d%s\n", bound, kWatchPath);
    return bound != 0;
}

std::function<std::optional<mcp::http_answer>(const mcp::http_request&)> page_of(const options& given,
                                                                                 watch_page& page) {
    if (!given.watch) return nullptr;
    return [&page](const mcp::http_request& request) { return page.answer(request); };
}

}  // namespace

bridge_settings settings_for(const options& given) {
    bridge_settings settings;
    settings.around = surroundings_of_machine(orvanic_xr::kMcpServerPort);
    settings.version = VELMOOR_VERSION;
    settings.wait = std::chrono::milliseconds(static_cast<std::int64_t>(given.wait_seconds * 1000));
    settings.tools_file = default_tools_file();
    settings.pictures = given.pictures;
    settings.own_tools = xr_tools(nullptr);
    return settings;
}

launch_options launch_options_of(const options& given) {
    return {.simulator = !given.no_simulator, .own_network = !given.shared_network, .control = given.control};
}

int serve_client(const options& given) {
    std::unique_ptr<given_application> application;
    bridge_settings settings = settings_for(given, application);
    const auto recorder = recorder_for(given, settings);
    watch watch;
    watch_server watch_server(watch);
    const bool is_watched = start_watch(given.watch_port, watch_server);
    if (is_watched) watch.follow(settings);
    bridge bridge(std::move(settings));
    if (recorder) recorder->ask(bridge);
    std::optional<looker> looker;
    if (is_watched) looker.emplace(watch, bridge);
    serve_stdio(bridge, {{"name", "velmoor"}, {"version", VELMOOR_VERSION}}, STDIN_FILENO, STDOUT_FILENO);
    return kWell;
}

int serve_many(const options& given) {
    if (given.token.empty() && !is_loopback(given.host)) {
        std::fputs(
            "velmoor: other machines are served with --token alone: whoever has it can operate the applications\n",
            stderr);
        return kMisused;
    }
    if (given.watch && !is_loopback(given.host) && given.host != "0.0.0.0" && given.host != "::") {
        std::fputs("velmoor: the page of --watch is for this machine alone, which can't reach it at that --host\n",
                   stderr);
        return kMisused;
    }
    sigset_t ends;
    sigemptyset(&ends);
    for (const int each : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ends, each);
    sigprocmask(SIG_BLOCK, &ends, nullptr);

    std::unique_ptr<given_application> application;
    bridge_settings settings = settings_for(given, application);
    const auto recorder = recorder_for(given, settings);
    watch watch;
    watch_page page(watch, given.token);
    if (given.watch) watch.follow(settings);
    bridge bridge(std::move(settings));
    if (recorder) recorder->ask(bridge);
    std::optional<looker> looker;
    if (given.watch) looker.emplace(watch, bridge);
    http_transport transport(bridge, {.host = given.host,
                                      .port = given.port,
                                      .token = given.token,
                                      .server_info = {{"name", "velmoor"}, {"version", VELMOOR_VERSION}},
                                      .page = page_of(given, page)});
    const int port = transport.bind();
    if (port == 0) {
        std::fprintf(stderr, "velmoor: port %d of %s is taken; --port chooses another\n", given.port,
                     given.host.c_str());
        return kFailed;
    }
    const std::string host = given.host.find(':') == std::string::npos ? given.host : "[" + given.host + "]";
    std::fprintf(stderr, "velmoor: serving http://%s:%d/mcp\n", host.c_str(), port);
    const char* const near = is_loopback(given.host) ? host.c_str() : "localhost";
    if (given.watch) std::fprintf(stderr, "velmoor: watch at http://%s:%d%s\n", near, port, kWatchPath);
    std::thread server([&transport] { transport.serve(); });
    int signal = 0;
    sigwait(&ends, &signal);
    looker.reset();  // closes the page, whose streams end
    transport.stop();
    server.join();
    return kWell;
}

}  // namespace velmoor
