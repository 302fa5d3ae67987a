#include "command/shell_commands.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>
#include <utility>

#include "command/bridge/pending_call.h"
#include "command/bridge/pictures.h"
#include "command/bridge/results.h"
#include "doctor/environment.h"
#include "doctor/examination.h"
#include "doctor/finding.h"
#include "mcp/client/blocking_client.h"

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// The layer's server takes half a second to give its address.
constexpr milliseconds kIntroduction{3000};

void print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

json outcome_of_call(bridge& through, const std::string& tool, json arguments) {
    return pending_call(through, {.name = tool, .arguments = std::move(arguments), .done = nullptr, .report = nullptr})
        .wait();
}

// Once each of them takes calls, or has had the time to.
std::vector<bridge::known_application> introduced(bridge& through) {
    through.expect_calls();
    const auto deadline = clock::now() + kIntroduction;
    for (;;) {
        auto found = through.applications();
        bool is_known = true;
        for (const auto& each : found) is_known &= each.state != link_state::opening;
        if (is_known || clock::now() >= deadline) return found;
        std::this_thread::sleep_for(milliseconds(20));
    }
}

// What an application says of itself, or nothing.
json system_info(bridge& through, const bridge::known_application& of) {
    if (of.state != link_state::ready) return json::object();
    const json outcome = outcome_of_call(through, "openxr_get_system_info", {{"app", std::to_string(of.who.pid)}});
    try {
        return mcp::parse_json(mcp::text_of(outcome.value("result", json::object())));
    } catch (const std::exception&) {
        return json::object();
    }
}

// Up to the first full stop or line's end.
std::string first_sentence(const std::string& text) {
    const std::size_t stop = text.find(". ");
    const std::size_t line = text.find('\n');
    return text.substr(0, std::min(stop == std::string::npos ? stop : stop + 1, line));
}

}  // namespace

int show_applications(bridge& through, bool as_json) {
    json list = json::array();
    for (const auto& each : introduced(through)) {
        const json info = system_info(through, each);
        json row{{"name", each.who.name}, {"pid", each.who.pid}, {"user", each.who.user}};
        row["own_network"] = each.who.network_process != 0;
        row["takes_calls"] = each.state == link_state::ready;
        row["system"] = info.is_object() ? info.value("system_name", "") : "";
        if (!each.problem.empty()) row["problem"] = each.problem;
        list.push_back(std::move(row));
    }
    if (as_json) {
        print(mcp::dump_json({{"applications", list}}, 2) + "\n");
    } else if (list.empty()) {
        std::fputs("velmoor: no application with the Velmoor layer runs; `velmoor run -- APPLICATION` starts one\n",
                   stderr);
    }
    for (const json& row : as_json ? json::array() : list) {
        const std::string network = row["own_network"] == true ? " in a network of its own" : "";
        const std::string system = row["system"].get<std::string>();
        std::string line = std::to_string(row["pid"].get<int>()) + " " + row["name"].get<std::string>() + network;
        if (row["takes_calls"] == true) {
            if (!system.empty()) line += " on " + system;
        } else {
            line += ": does not answer (" + row.value("problem", "not yet") + ")";
        }
        print(line + "\n");
    }
    return list.empty() ? kNobodyThere : kWell;
}

int show_tools(bridge& through, bool as_json) {
    introduced(through);
    std::this_thread::sleep_for(milliseconds(100));  // the list is renewed just after
    const json list = mcp::parse_json(*through.list_tools());
    if (as_json) print(mcp::dump_json({{"tools", list}}, 2) + "\n");
    for (const json& tool : as_json ? json::array() : list) {
        print(tool["name"].get<std::string>() + "  " + first_sentence(tool.value("description", "")) + "\n");
    }
    return kWell;
}

int call_once(bridge& through, const call_request& request) {
    json arguments = json::object();
    if (!request.arguments.empty()) {
        try {
            arguments = mcp::parse_json(request.arguments);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "velmoor: the arguments are no JSON: %s\n", mcp::reason_of(e).c_str());
            return kMisused;
        }
    }
    if (!arguments.is_object()) {
        std::fputs("velmoor: the arguments must be a JSON object, such as '{\"base_space\": \"stage\"}'\n", stderr);
        return kMisused;
    }
    if (!request.app.empty()) arguments["app"] = request.app;
    const json outcome = outcome_of_call(through, request.tool, std::move(arguments));
    if (const auto error = outcome.find("error"); error != outcome.end()) {
        std::fprintf(stderr, "velmoor: %s\n", error->value("message", "the call failed").c_str());
        return kFailed;
    }
    const json& result = outcome.at("result");
    const bool is_error = result.is_object() && result.value("isError", false);
    const std::string text = mcp::text_of(result);
    if (is_error) {
        std::fprintf(stderr, "%s\n", text.c_str());
        return text.starts_with("Error: The call was not run") ? kNobodyThere : kFailed;
    }
    if (!text.empty()) print(text + "\n");
    if (request.pictures.empty()) return kWell;
    for (const std::string& file : save_pictures(result, request.pictures, request.tool)) print(file + "\n");
    return kWell;
}

int show_doctor(bool as_json) {
    const orvanic_xr::Environment environment = orvanic_xr::CurrentEnvironment();
    const orvanic_xr::Findings findings = orvanic_xr::Examine(environment);
    const bool coloured = isatty(STDOUT_FILENO) != 0 && !orvanic_xr::ValueOf(environment, "NO_COLOR");
    print(as_json ? orvanic_xr::ReportJson(findings) : orvanic_xr::ReportText(findings, coloured));
    return orvanic_xr::AgentCouldWork(findings) ? kWell : kFailed;
}

}  // namespace velmoor
