#include "examples/velmoor_demo/game_tools.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "velmoor/external_tool.h"

namespace demo {
namespace {

using json = nlohmann::ordered_json;

// No agent is kept waiting longer: clients give a call about a minute.
constexpr double kLongestWait = 30.0;

constexpr std::uint32_t kAtOnce = 0;
constexpr std::uint32_t kOnPoll = XR_ORVANIC_EXTERNAL_TOOL_CALLBACK_ON_POLL_EVENT_BIT_KESTX1;
constexpr std::uint32_t kOnFrame = XR_ORVANIC_EXTERNAL_TOOL_CALLBACK_ON_BEGIN_FRAME_BIT_KESTX1;

json ReadScore(Game& game, const json& /*arguments*/) {
    const Game::Standing standing = game.standing();
    return {{"score", standing.score}, {"weather", standing.weather}};
}

json SpawnCube(Game& game, const json& arguments) {
    const json& position = arguments.at("position");
    const Cube cube = {{position.at(0), position.at(1), position.at(2)},
                       arguments.value("size", 0.2f),
                       arguments.value("color", "white")};
    return {{"cube", game.SpawnCube(cube)}, {"color", cube.color}};
}

json SetWeather(Game& game, const json& arguments) {
    game.SetWeather(arguments.at("weather"));
    return {{"weather", game.standing().weather}};
}

// A whole number of the agent's, which may have sent any: held to what the game takes.
int Whole(const json& step, const char* name, int otherwise, int least, int most) {
    return static_cast<int>(std::clamp<double>(step.value(name, static_cast<double>(otherwise)), least, most));
}

std::chrono::milliseconds Limit(const json& arguments) {
    const double seconds = std::clamp(arguments.value("timeout_seconds", kLongestWait), 0.0, kLongestWait);
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000.0));
}

// Waits on a thread of the server, beside the frame loop: the application keeps rendering, and that is what the
// condition may need to come true.
json WaitUntil(Game& game, const json& arguments) {
    const std::string condition = arguments.at("condition");
    const std::optional<bool> met = game.WaitUntil(condition, Limit(arguments));
    if (!met) return {{"error", "there is no condition '" + condition + "'"}, {"conditions", Game::ConditionNames()}};
    return {{"condition", condition}, {"met", *met}};
}

// Hands the steps to the frame loop and waits for the last of them; the answer tells which frame each fell into.
json PlaySequence(Game& game, const json& arguments) {
    std::vector<SequenceStep> steps;
    for (const json& step : arguments.at("steps")) {
        steps.push_back({Whole(step, "at_ms", 0, 0, 60'000), step.at("action"), Whole(step, "amount", 1, -1000, 1000),
                         step.value("weather", "sun")});
    }
    json happened = json::array();
    for (const SequenceEvent& event : game.PlaySequence(std::move(steps), Limit(arguments))) {
        happened.push_back({{"action", event.action}, {"frame", event.frame}, {"at_ms", event.at_ms}});
    }
    return {{"happened", happened}, {"score", game.standing().score}};
}

// The callback behind every tool: JSON in, JSON out, and a bad argument is told to the agent.
template <json (*kAnswer)(Game&, const json&)>
XrResult XRAPI_CALL Serve(char* buffer, std::uint32_t capacity, std::uint32_t* output_size, const char* arguments_json,
                          void* user_data) {
    std::string text;
    try {
        text = kAnswer(*static_cast<Game*>(user_data), json::parse(arguments_json)).dump();
    } catch (const json::exception& problem) {
        text = json{{"error", problem.what()}}.dump(-1, ' ', false, json::error_handler_t::replace);
    }
    *output_size = static_cast<std::uint32_t>(text.size());
    if (text.size() >= capacity) return XR_ERROR_SIZE_INSUFFICIENT;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return XR_SUCCESS;
}

XrOrvanicExternalToolParameterKESTX1 Parameter(const char* name, const char* description, std::int32_t type,
                                               XrBool32 required = XR_FALSE, std::int32_t item_type = 0) {
    XrOrvanicExternalToolParameterKESTX1 parameter = {};
    parameter.type = XR_TYPE_ORVANIC_EXTERNAL_TOOL_PARAMETER_KESTX1;
    std::strncpy(parameter.name, name, sizeof parameter.name - 1);
    std::strncpy(parameter.description, description, sizeof parameter.description - 1);
    parameter.paramType = type;
    parameter.required = required;
    parameter.arrayItemType = item_type;
    return parameter;
}

struct GameTool {
    const char* name;
    const char* description;
    PFN_xrOrvanicExternalToolCallbackKESTX1 callback;
    std::uint32_t flags;
    std::vector<XrOrvanicExternalToolParameterKESTX1> parameters;
};

std::vector<GameTool> GameTools() {
    constexpr auto kString = XR_ORVANIC_EXTERNAL_TOOL_TYPE_STRING_KESTX1;
    constexpr auto kNumber = XR_ORVANIC_EXTERNAL_TOOL_TYPE_NUMBER_KESTX1;
    constexpr auto kArray = XR_ORVANIC_EXTERNAL_TOOL_TYPE_ARRAY_KESTX1;
    constexpr auto kObject = XR_ORVANIC_EXTERNAL_TOOL_TYPE_OBJECT_KESTX1;
    const auto limit = Parameter("timeout_seconds", "How long to wait at most, up to 30. Default: 30.", kNumber);
    return {
        {"read_score", "Tells the player's score and the weather.", Serve<ReadScore>, kOnPoll, {}},
        {"spawn_cube",
         "Puts a cube into the scene and tells its number.",
         Serve<SpawnCube>,
         kOnFrame,
         {Parameter("position", "Where, as [x, y, z] in metres in the stage.", kArray, XR_TRUE, kNumber),
          Parameter("size", "Length of an edge in metres. Default: 0.2.", kNumber),
          Parameter("color", "Name of a colour. Default: white.", kString)}},
        {"set_weather",
         "Changes the weather of the scene, which settles within half a second.",
         Serve<SetWeather>,
         kOnFrame,
         {Parameter("weather", "sun, rain or snow.", kString, XR_TRUE)}},
        {"wait_until",
         "Waits until a condition of the application holds: weather_settled, score_is_good or cube_is_there. Answers "
         "whether it came to hold in time.",
         Serve<WaitUntil>,
         kAtOnce,
         {Parameter("condition", "Name of the condition.", kString, XR_TRUE), limit}},
        {"play_sequence",
         "Carries out steps at their times on the application's own frames, and tells what happened in which frame. A "
         "step is {at_ms, action, amount} with the action add_score, or {at_ms, action, weather} with set_weather.",
         Serve<PlaySequence>,
         kAtOnce,
         {Parameter("steps", "The steps.", kArray, XR_TRUE, kObject), limit}},
    };
}

}  // namespace

int RegisterGameTools(XrInstance instance, Game& game) {
    PFN_xrOrvanicRegisterExternalToolKESTX1 register_tool = nullptr;
    if (XR_FAILED(xrGetInstanceProcAddr(instance, "xrOrvanicRegisterExternalToolKESTX1",
                                        reinterpret_cast<PFN_xrVoidFunction*>(&register_tool)))) {
        return 0;
    }
    int registered = 0;
    for (const GameTool& tool : GameTools()) {
        XrOrvanicExternalToolRegisterInfoKESTX1 info = {};
        info.type = XR_TYPE_ORVANIC_EXTERNAL_TOOL_REGISTER_INFO_KESTX1;
        std::strncpy(info.name, tool.name, sizeof info.name - 1);
        std::strncpy(info.description, tool.description, sizeof info.description - 1);
        info.paramsCount = static_cast<std::uint32_t>(tool.parameters.size());
        info.params = tool.parameters.data();
        info.callback = tool.callback;
        info.callbackFlags = tool.flags;
        info.userData = &game;
        if (XR_SUCCEEDED(register_tool(instance, &info))) ++registered;
    }
    return registered;
}

}  // namespace demo
