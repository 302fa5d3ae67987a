// What the agent does on its tour, as data: a title, a tool, its arguments, and what a good answer looks like.
#include <cmath>
#include <memory>

#include "examples/velmoor_agent/tour.h"

namespace agent {
namespace {

constexpr auto kComingUp = std::chrono::seconds(10);

using Steps = std::vector<TourStep>;

void Append(Steps& tour, Steps more) {
    for (TourStep& step : more) tour.push_back(std::move(step));
}

std::string Expect(bool holds, const std::string& otherwise) {
    return holds ? "" : otherwise;
}

std::string Succeeded(const json& answer) {
    return Expect(answer.is_object() && answer.value("success", false), "it did not succeed");
}

bool IsNear(const json& numbers, const json& expected, double tolerance) {
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (std::fabs(numbers.at(i).get<double>() - expected.at(i).get<double>()) > tolerance) return false;
    }
    return true;
}

std::string IsRunning(const json& answer) {
    const std::string state = answer.at("state").at("name");
    return Expect(state == "XR_SESSION_STATE_FOCUSED", "the session does not have the focus");
}

Steps LookAround() {
    return {
        {"Ask which application this is",
         "openxr_get_instance_info",
         {{"include_enabled_extensions", true}},
         [](const json& answer) { return Expect(answer.at("application").at("name") != "", "it has no name"); },
         kComingUp},
        {"Wait until its session has the focus", "openxr_get_session_info", json::object(), IsRunning, kComingUp},
        {"Ask what device it runs on", "openxr_get_system_info", json::object(),
         [](const json& answer) { return Expect(answer.at("system_name") != "", "it has no name"); }, kComingUp},
    };
}

// Two steps that look at the frame share the time of the one that came first.
Steps WatchFrames() {
    const auto first_time = std::make_shared<std::int64_t>(0);
    const auto display_time = [](const json& answer) -> std::int64_t {
        return answer.at("frame_state").at("predicted_display_time").at("XrTime");
    };
    const auto remember = [=](const json& answer) {
        *first_time = display_time(answer);
        return Expect(*first_time > 0, "the frame has no display time");
    };
    const auto went_by = [=](const json& answer) {
        return Expect(display_time(answer) > *first_time, "no frame went by since");
    };
    return {
        {"See the last frame", "openxr_get_frame_info", json::object(), remember, kComingUp},
        {"See that frames go by", "openxr_get_frame_info", json::object(), went_by, kComingUp},
    };
}

Steps SeeTheRoom(const std::string& picture_directory) {
    TourStep picture = {"See what the user sees", "openxr_capture_composited_image", {{"eye", "left"}}};
    picture.picture_file = picture_directory + "/velmoor_before.png";
    return {
        {"List the things of the room", "openxr_list_spatial_entities", json::object(),
         [](const json& answer) { return Expect(answer.at("entity_count") > 0, "the room is empty"); }, kComingUp},
        picture,
    };
}

// A step that changes what can be seen.
TourStep Seen(TourStep step, const std::string& picture_directory, const char* name) {
    step.seen_as = picture_directory + "/" + name;
    return step;
}

Steps TakeOver(const std::string& picture_directory) {
    const json after_the_walk = {0.0, 1.6, -0.5};
    return {
        {"Step back to a known place",
         "openxr_set_head_pose",
         {{"position", {0.0, 1.6, 1.5}}, {"orientation", {0, 0, 0, 1}}, {"base_space", "stage"}},
         Succeeded},
        {"Wait until the simulated controllers drive the application's input", "openxr_get_active_interaction_profile",
         json::object(),
         [](const json& answer) {
             const json profile = "/interaction_profiles/kest/pronto_controller_plus";
             return Expect(answer.at("left").at("profile") == profile && answer.at("right").at("profile") == profile,
                           "it is not the simulated controllers' profile");
         },
         kComingUp},
        {"Walk two metres forward in two seconds, the controllers carried along",
         "openxr_set_head_pose",
         {{"position", after_the_walk}, {"base_space", "stage"}, {"duration_seconds", 2}},
         Succeeded},
        {"Find the head where it walked to",
         "openxr_get_head_pose",
         {{"base_space", "stage"}},
         [=](const json& answer) {
             return Expect(IsNear(answer.at("pose").at("position"), after_the_walk, 0.01), "the head is elsewhere");
         },
         kComingUp},
        Seen({"Hold the right controller out",
              "openxr_set_controller_pose",
              {{"hand", "right"},
               {"pose_type", "grip"},
               {"position", {0.3, 1.3, -1.1}},
               {"orientation", {0.0, 0.3827, 0.0, 0.9239}},
               {"base_space", "stage"},
               {"duration_seconds", 1}},
              Succeeded},
             picture_directory, "hand"),
        Seen({"Point it to the left",
              "openxr_set_controller_pose",
              {{"hand", "right"},
               {"pose_type", "aim"},
               {"position", {0.27, 1.3, -1.13}},
               {"orientation", {0.0, 0.3827, 0.0, 0.9239}},
               {"base_space", "stage"},
               {"duration_seconds", 1}},
              Succeeded},
             picture_directory, "pointer"),
        Seen({"Pull its trigger, and let go after a moment",
              "openxr_set_controller_input",
              {{"hand", "right"},
               {"component", "Trigger"},
               {"value", 1},
               {"auto_release", true},
               {"hold_duration", 1.5}},
              [](const json& answer) { return Expect(answer.at("auto_release") == true, "nothing will let go"); }},
             picture_directory, "trigger"),
        {"Push the left thumbstick forward",
         "openxr_set_controller_input",
         {{"hand", "left"}, {"component", "Thumbstick"}, {"sub_component", "Y"}, {"value", 0.75}},
         Succeeded},
        {"See where the simulation has the right controller",
         "openxr_get_controller_pose",
         {{"hand", "right"}, {"pose_type", "aim"}, {"base_space", "stage"}},
         [](const json& answer) { return Expect(answer.at("simulated") == true, "it is not simulated"); }},
    };
}

// The agent computes where to look and looks there: each step goes on with the answer before it.
Steps LookAtSomething(const std::string& picture_directory) {
    const auto direction = std::make_shared<json>();
    const auto orientation = std::make_shared<json>();
    TourStep build = {"Compute how to look along it", "math_build_quat", json::object(), [=](const json& answer) {
                          *orientation = answer.at("quaternion");
                          return Succeeded(answer);
                      }};
    build.late_arguments = [=] { return json{{"front_direction", *direction}}; };
    TourStep look = {"Look there", "openxr_set_head_pose", json::object(), Succeeded};
    look.late_arguments = [=] {
        return json{{"orientation", *orientation}, {"base_space", "stage"}, {"duration_seconds", 1}};
    };
    TourStep picture = {"See what the user sees now", "openxr_capture_composited_image", {{"eye", "left"}}};
    picture.picture_file = picture_directory + "/velmoor_after.png";
    return {
        {"Compute the direction from the head to a point on the right",
         "math_sub",
         {{"a", {2.0, 0.7, -2.0}}, {"b", {0.0, 1.6, -0.5}}},
         [=](const json& answer) {
             *direction = answer.at("result");
             return Succeeded(answer);
         }},
        {"Compute how far it is", "math_calc", {{"expression", "sqrt(2**2 + 0.9**2 + 1.5**2)"}}, Succeeded},
        build,
        look,
        picture,
        {"Go to the corner and turn round to the rest of the room",
         "openxr_set_head_pose",
         {{"position", {1.4, 1.7, -1.4}},
          {"orientation", {-0.0315, 0.9587, 0.1177, 0.2569}},
          {"base_space", "stage"},
          {"duration_seconds", 2}},
         Succeeded},
    };
}

Steps PlayTheGame(const std::string& picture_directory) {
    return {
        {"Go back to where the game can be seen",
         "openxr_set_head_pose",
         {{"position", {0.0, 1.6, 0.4}},
          {"orientation", {0, 0, 0, 1}},
          {"base_space", "stage"},
          {"duration_seconds", 1}},
         Succeeded},
        {"Ask the game for its score", "read_score", json::object(),
         [](const json& answer) { return Expect(answer.contains("score"), "there is no score"); }},
        Seen({"Have it spawn a cube",
              "spawn_cube",
              {{"position", {0.5, 1.0, -1.4}}, {"size", 0.3}, {"color", "red"}},
              [](const json& answer) { return Expect(answer.contains("cube"), "there is no cube"); }},
             picture_directory, "cube"),
        Seen({"Let it rain",
              "set_weather",
              {{"weather", "rain"}},
              [](const json& answer) { return Expect(answer.value("weather", "") == "rain", "it does not rain"); }},
             picture_directory, "weather"),
        {"Wait, inside the application, until a condition of its own holds",
         "wait_until",
         {{"condition", "weather_settled"}, {"timeout_seconds", 10}},
         [](const json& answer) { return Expect(answer.value("met", false), "it never came to hold"); }},
        Seen({"Play a timed sequence on the application's own frames",
              "play_sequence",
              {{"steps",
                {{{"at_ms", 0}, {"action", "add_score"}, {"amount", 5}},
                 {{"at_ms", 100}, {"action", "set_weather"}, {"weather", "sun"}},
                 {{"at_ms", 200}, {"action", "add_score"}, {"amount", 5}}}}},
              [](const json& answer) { return Expect(answer.at("happened").size() == 3, "not every step happened"); }},
             picture_directory, "score"),
    };
}

TourStep EndTheSession() {
    return {"Ask the session to end", "openxr_exit_session", json::object(), [](const json& answer) {
                return Expect(answer == "XR session exit requested successfully. Application should exit soon.",
                              "it was refused");
            }};
}

}  // namespace

std::vector<TourStep> MakeTour(const std::string& picture_directory, bool exit_at_end) {
    Steps tour = LookAround();
    Append(tour, WatchFrames());
    Append(tour, SeeTheRoom(picture_directory));
    Append(tour, TakeOver(picture_directory));
    Append(tour, LookAtSomething(picture_directory));
    Append(tour, PlayTheGame(picture_directory));
    if (exit_at_end) tour.push_back(EndTheSession());
    return tour;
}

}  // namespace agent
