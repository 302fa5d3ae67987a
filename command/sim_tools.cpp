#include "command/sim_tools.h"

#include <utility>

#include "command/bridge/results.h"
#include "command/launch/simulator_link.h"

namespace velmoor {
namespace {

json state_after(simulator_link& link, const json& request, tool_run& run) {
    const json state = link.ask(request, [&run] { run.wait_for(std::chrono::milliseconds(0)); });
    return text_result(mcp::dump_json(state, 2), false);
}

own_tool sim_tool(simulator_link& link, const char* name, const char* description, json properties, json required,
                  json (*request_of)(const json& arguments)) {
    return {{{"name", name},
             {"description", description},
             {"inputSchema",
              {{"type", "object"}, {"properties", std::move(properties)}, {"required", std::move(required)}}},
             {"annotations", {{"readOnlyHint", false}}}},
            [&link, request_of](const json& arguments, tool_run& run) {
                return state_after(link, request_of(arguments), run);
            }};
}

// The names that are given, as they are: the simulator says what is wrong with them.
json with_given(json request, const json& arguments, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (arguments.contains(name)) request[name] = arguments[name];
    }
    return request;
}

}  // namespace

std::vector<own_tool> sim_tools(simulator_link& link) {
    const json none = json::object();
    const json frames{{"frames", {{"type", "integer"}, {"description", "Default 1"}}}};
    const json rate{{"rate",
                     {{"description",
                       "Speed of its time: 1 is real time, \"fastest\" is as fast as it can. As it was by default"}}}};
    const json event{
        {"event",
         {{"type", "string"},
          {"enum",
           {"focus_lost", "focus_gained", "headset_off", "headset_on", "tracking_lost", "tracking_found",
            "controller_asleep", "controller_awake", "session_loss", "recentre"}},
          {"description",
           "What happens: focus_lost, focus_gained, headset_off, headset_on, tracking_lost, "
           "tracking_found, controller_asleep, controller_awake, session_loss, recentre"}}},
        {"hand", {{"type", "string"}, {"description", "left or right, for what happens to a controller"}}}};
    return {
        sim_tool(link, "sim_pause",
                 "Holds the application between two frames: its time stands still until sim_step or sim_run. Pictures "
                 "show the frame that is held. A tool that needs frames gets them, and no more.",
                 none, json::array(),
                 [](const json&) {
                     return json{{"do", "pause"}};
                 }),
        sim_tool(link, "sim_step", "Lets so many frames of the application go by, and holds it then.", frames,
                 json::array(),
                 [](const json& arguments) {
                     return with_given({{"do", "step"}}, arguments, {"frames"});
                 }),
        {sim_tool(link, "sim_run", "Lets the application run on.", rate, json::array(), nullptr).declaration,
         [&link](const json& arguments, tool_run& run) {
             if (arguments.contains("rate")) state_after(link, {{"do", "rate"}, {"rate", arguments["rate"]}}, run);
             return state_after(link, {{"do", "run"}}, run);
         }},
        sim_tool(link, "sim_event", "Has something happen to the headset, its wearer or the session.", event,
                 json::array({"event"}),
                 [](const json& arguments) {
                     return with_given({{"do", "event"}}, arguments, {"event", "hand"});
                 }),
    };
}

}  // namespace velmoor
