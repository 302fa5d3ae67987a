#include <chrono>
#include <stdexcept>

#include "command/bridge/arguments.h"
#include "command/bridge/results.h"
#include "command/launch/started_application.h"
#include "command/xr/xr_tools.h"

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;

std::int64_t milliseconds_since(clock::time_point when, clock::time_point now) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(now - when).count();
}

bool has_path_with(const input_log::action& of, const std::string& part) {
    for (const std::string& each : of.paths) {
        if (each.find(part) != std::string::npos) return true;
    }
    return part.empty();
}

json row_of(const std::string& handle, const input_log::action& of, clock::time_point now) {
    json row{{"action", handle}, {"paths", of.paths}, {"read", !of.readings.empty()}};
    if (of.readings.empty()) return row;
    row["active"] = !of.readings.back().values.empty();
    row["values"] = of.readings.back().values;
    row["changes"] = json::array();
    for (const input_log::reading& each : of.readings) {
        row["changes"].push_back({{"values", each.values}, {"ms_ago", milliseconds_since(each.when, now)}});
    }
    return row;
}

json read_inputs(started_application* application, const json& arguments) {
    const std::string part = text_argument(arguments, "path");
    if (!application) {
        throw std::runtime_error(
            "what an application reads of its inputs is in the lines that it prints, and this server sees those of an "
            "application that it started. Give it one: velmoor mcp -- APPLICATION, and call app_start");
    }
    const auto now = clock::now();
    const auto actions = application->inputs();
    if (actions.empty()) {
        throw std::runtime_error(
            application->is_running()
                ? "the application has suggested no bindings yet, or runs without ORVANICXR_VERBOSE=1, which this "
                  "server sets unless the variable is there already"
                : "the application does not run; app_start starts it");
    }
    json rows = json::array();
    for (const auto& [handle, each] : actions) {
        if (has_path_with(each, part)) rows.push_back(row_of(handle, each, now));
    }
    return text_result(mcp::dump_json({{"running", application->is_running()}, {"actions", rows}}), false);
}

}  // namespace

own_tool make_inputs_tool(started_application* application) {
    return {own_declaration("xr_inputs",
                            "What the application itself last read of its boolean and float actions: the paths that it "
                            "suggested for each, the active values (one, or one for each hand), and when they changed. "
                            "Vectors and poses are not logged. Needs an application that app_start started.",
                            {{"path", property("string", "Only actions with a path that holds this, such as a/click")}},
                            true),
            [application](const json& arguments, tool_run&) { return read_inputs(application, arguments); }};
}

}  // namespace velmoor
