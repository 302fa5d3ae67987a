// velmoor: one command for people and agents. Each subcommand is a few lines over a library; see `velmoor --help`.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "command/launch/keeper.h"
#include "command/recording/recording.h"
#include "command/recording/test_writer.h"
#include "command/serving.h"

namespace {

using velmoor::options;

int with_bridge(const options& given, int (*run)(velmoor::bridge&, const options&)) {
    velmoor::bridge bridge(velmoor::settings_for(given));
    bridge.introduce({{"name", "velmoor"}, {"version", VELMOOR_VERSION}});
    return run(bridge, given);
}

int keep(const options& given) {
    return velmoor::keep_application(given.application, velmoor::launch_options_of(given));
}

void add_launch_options(CLI::App& command, options& given) {
    command
        .add_option_function<std::string>(
            "--runtime", [&given](const std::string& name) { given.no_simulator = name == "installed"; },
            "simulator, or installed: the active runtime, with the layer that moves devices on it")
        ->check(CLI::IsMember({"simulator", "installed"}))
        ->default_str("simulator");
    command.add_flag("--no-simulator", given.no_simulator, "The same as --runtime installed");
    command.add_flag("--shared-network", given.shared_network, "Run the application in the network of all");
}

void add_wait(CLI::App& command, options& given) {
    command.add_option("--wait", given.wait_seconds, "Seconds that a call waits for an application")
        ->capture_default_str()
        // Range lets through what is no number.
        ->check([](const std::string& text) {
            return std::isnan(std::strtod(text.c_str(), nullptr)) ? text + " is no number" : std::string();
        })
        ->check(CLI::Range(0.0, 3600.0));
}

void add_record(CLI::App& command, options& given) {
    command.add_option("--record", given.record, "Directory in which to record all calls and what they were answered");
    command.add_option("--record-limit", given.record_limit, "MiB at which the recording ends; 0 for none")
        ->capture_default_str()
        ->check(CLI::Range(0, 1 << 20));
}

int show_recording(const options& given) {
    const std::string text = velmoor::shown_recording(velmoor::read_recording(given.recording));
    std::fwrite(text.data(), 1, text.size(), stdout);
    return velmoor::kWell;
}

int test(const options& given) {
    velmoor::test_request request = given.test;
    try {
        if (!given.shard.empty()) velmoor::take_shard(given.shard, request);
        request.run.command = given.application;
        request.run.launch = velmoor::launch_options_of(given);
        request.run.version = VELMOOR_VERSION;
        if (request.at_a_time > 1 && !request.run.launch.own_network) {
            throw std::runtime_error("several at a time need a network each, and --shared-network says no");
        }
        return velmoor::run_tests(request);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "velmoor: %s\n", e.what());
        return velmoor::kMisused;  // no test has failed
    }
}

int write_test(const options& given) {
    const velmoor::recording read = velmoor::read_recording(given.recording);
    const std::string text = velmoor::test_of(read);
    std::fwrite(text.data(), 1, text.size(), stdout);
    for (const std::string& each : read.notes) std::fprintf(stderr, "velmoor: %s\n", each.c_str());
    return velmoor::kWell;
}

struct subcommand {
    CLI::App* parsed;
    bool takes_application;
    bool needs_application;
    int (*run)(const options&);
};

std::vector<subcommand> add_subcommands(CLI::App& app, options& given) {
    std::vector<subcommand> all;
    const auto add = [&](const char* name, const char* description, const char* example, bool takes_application,
                         bool needs_application, int (*run)(const options&)) -> CLI::App& {
        CLI::App* const made = app.add_subcommand(name, description);
        made->footer(std::string("Example:\n  ") + example);
        all.push_back({made, takes_application, needs_application, run});
        return *made;
    };
    CLI::App& mcp = add("mcp", "Serves one MCP client on standard input and output [-- APPLICATION ARGUMENTS...]",
                        "claude mcp add velmoor -- velmoor mcp -- ./build/my_app", true, false, velmoor::serve_client);
    add_wait(mcp, given);
    add_record(mcp, given);
    mcp.add_option("--watch", given.watch_port, "Port of 127.0.0.1 for a page that shows what happens; 0 takes any")
        ->check(CLI::Range(0, 65535));
    mcp.add_option("--pictures", given.pictures, "Directory for a copy of each picture, which the answer then names");
    add_launch_options(mcp, given);

    CLI::App& serve = add("serve", "Serves many MCP clients over Streamable HTTP [-- APPLICATION ARGUMENTS...]",
                          "velmoor serve --port 8730", true, false, velmoor::serve_many);
    add_wait(serve, given);
    serve.add_option("--port", given.port, "TCP port; 0 takes any")->capture_default_str()->check(CLI::Range(0, 65535));
    serve.add_option("--host", given.host, "Address to listen at")->capture_default_str();
    serve.add_option("--token", given.token, "What clients send as Authorization: Bearer TOKEN")
        ->envname("VELMOOR_TOKEN");
    add_record(serve, given);
    serve.add_flag("--watch", given.watch, "Also serve a page that shows what happens, at /watch, to this machine");
    serve.add_option("--pictures", given.pictures, "Directory for a copy of each picture, which the answer then names");
    add_launch_options(serve, given);

    CLI::App& run = add("run", "Runs an application with the layer and the simulator -- APPLICATION ARGUMENTS...",
                        "velmoor run -- ./build/my_app", true, true, [](const options& read) {
                            return velmoor::run_application(read.application, velmoor::launch_options_of(read));
                        });
    add_launch_options(run, given);

    CLI::App& test_command = add("test", "Goes through test files with fresh applications -- APPLICATION ARGUMENTS...",
                                 "velmoor test -j 4 tests/*.yaml -- ./build/my_app", true, true, test);
    velmoor::test_request& request = given.test;
    test_command.add_option("FILE", request.files, "Test files")->required();
    test_command.add_option("-j", request.at_a_time, "Applications at a time")->check(CLI::Range(1, 64));
    test_command.add_option("--repeat", request.repeat, "How often each")->check(CLI::Range(1, 100000));
    test_command.add_flag("--update", request.run.update, "Write the baselines of pictures, and compare nothing");
    test_command.add_option("--shard", given.shard, "Such as 2/8: every eighth file, from the second on");
    test_command.add_option("--renderer", request.run.renderer, "What baselines call this machine's renderer");
    test_command.add_option("--output", request.output, "Directory for reports")->capture_default_str();
    add_launch_options(test_command, given);

    CLI::App& apps = add("apps", "Lists the applications that can be operated", "velmoor apps --json", false, false,
                         [](const options& read) {
                             return with_bridge(read, [](velmoor::bridge& bridge, const options& its) {
                                 return velmoor::show_applications(bridge, its.as_json);
                             });
                         });
    apps.add_flag("--json", given.as_json, "As JSON");

    CLI::App& tools = add("tools", "Lists the tools", "velmoor tools", false, false, [](const options& read) {
        return with_bridge(
            read, [](velmoor::bridge& bridge, const options& its) { return velmoor::show_tools(bridge, its.as_json); });
    });
    tools.add_flag("--json", given.as_json, "As JSON, with their parameters");

    CLI::App& call = add(
        "call", "Calls a tool and prints the text of its answer",
        R"(velmoor call openxr_get_head_pose '{"base_space": "stage"}')", false, false, [](const options& read) {
            return with_bridge(
                read, [](velmoor::bridge& bridge, const options& its) { return velmoor::call_once(bridge, its.call); });
        });
    call.add_option("TOOL", given.call.tool, "The tool's name")->required();
    call.add_option("JSON", given.call.arguments, "Its arguments, as a JSON object");
    call.add_option("--app", given.call.app, "Name or pid of the application, where several run");
    call.add_option("--pictures", given.call.pictures, "Directory to write the answer's pictures to");
    add_wait(call, given);

    CLI::App& record = add("record", "Prints what mcp or serve recorded with --record", "velmoor record show session1",
                           false, false, nullptr);
    record.require_subcommand(1);
    CLI::App* const show = record.add_subcommand("show", "Prints a recording, call by call");
    show->add_option("DIRECTORY", given.recording, "That --record named")->required();
    all.back() = {show, false, false, show_recording};
    CLI::App* const made = record.add_subcommand("test", "Prints a test file made of a recording");
    made->add_option("DIRECTORY", given.recording, "That --record named")->required();
    all.push_back({made, false, false, write_test});

    CLI::App& doctor = add("doctor", "Tells whether an agent could work with an application started from this shell",
                           "velmoor doctor || exit 1", false, false,
                           [](const options& read) { return velmoor::show_doctor(read.as_json); });
    doctor.add_flag("--json", given.as_json, "As JSON");

    CLI::App& kept = add("keep", "", "", true, true, keep);
    kept.group("");  // for this program itself
    add_launch_options(kept, given);
    kept.add_option("--control", given.control);
    return all;
}

int run(std::vector<std::string> words) {
    options given;
    CLI::App app("Lets agents and people see and operate XR applications that run with the Velmoor layer.", "velmoor");
    app.set_version_flag("--version", "velmoor " VELMOOR_VERSION);
    app.require_subcommand(1);
    const std::vector<subcommand> all = add_subcommands(app, given);

    // All behind the first "--" is the application's, whatever it looks like.
    const auto dashes = std::find(words.begin(), words.end(), "--");
    const bool has_application = dashes != words.end();
    if (has_application) given.application.assign(dashes + 1, words.end());
    words.erase(dashes, words.end());
    std::reverse(words.begin(), words.end());  // as the library takes them
    try {
        app.parse(words);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? velmoor::kWell : velmoor::kMisused;
    }
    for (const subcommand& each : all) {
        if (!each.parsed->parsed()) continue;
        if (has_application && (!each.takes_application || given.application.empty())) {
            std::fprintf(stderr, "velmoor: %s\n",
                         each.takes_application ? "no application stands behind \"--\""
                                                : "this takes no application behind \"--\"");
            return velmoor::kMisused;
        }
        if (each.needs_application && !has_application) {
            std::fputs("velmoor: the application is missing: velmoor run|test ... -- APPLICATION ARGUMENTS...\n",
                       stderr);
            return velmoor::kMisused;
        }
        return each.run(given);
    }
    return velmoor::kMisused;
}

}  // namespace

int main(int argc, char** argv) try {
    std::signal(SIGPIPE, SIG_IGN);  // who does not read any more is seen when writing to him
    std::vector<std::string> words(argv + 1, argv + argc);
    // What the doctor was called before.
    const std::string_view name = argc > 0 ? argv[0] : "";
    if (name.ends_with("velmoor-doctor")) words.insert(words.begin(), "doctor");
    return run(std::move(words));
} catch (const std::exception& e) {
    std::fprintf(stderr, "velmoor: %s\n", e.what());
    return velmoor::kFailed;
}
