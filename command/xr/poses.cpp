#include "command/xr/poses.h"

#include <chrono>
#include <stdexcept>

#include "mcp/client/blocking_client.h"
#include "xr/pose_math.h"

namespace velmoor {
namespace {

constexpr std::chrono::milliseconds kTakeOverLimit{500};
constexpr std::chrono::milliseconds kBetweenLooks{10};

bool is_valid(const json& answer) {
    const json flags = answer.is_object() ? answer.value("flags", json()) : json();
    return flags.is_object() && flags.value("position_valid", json()) == true &&
           flags.value("orientation_valid", json()) == true;
}

bool has_numbers(const json& list, std::size_t count) {
    if (!list.is_array() || list.size() != count) return false;
    for (const json& each : list) {
        if (!each.is_number()) return false;
    }
    return true;
}

}  // namespace

json answer_of(tool_run& run, const char* tool, const json& arguments) {
    const std::string text = mcp::text_of(run.call(tool, arguments));
    try {
        return mcp::parse_json(text);
    } catch (const json::exception&) {
        throw std::runtime_error(text);
    }
}

json to_json(const XrPosef& pose) {
    const auto& [orientation, position] = pose;
    return {{"position", {position.x, position.y, position.z}},
            {"orientation", {orientation.x, orientation.y, orientation.z, orientation.w}}};
}

std::optional<XrPosef> pose_from(const json& told) {
    if (!told.is_object() || !has_numbers(told.value("position", json()), 3) ||
        !has_numbers(told.value("orientation", json()), 4)) {
        return std::nullopt;
    }
    const json& p = told["position"];
    const json& q = told["orientation"];
    // Answers are rounded.
    return XrPosef{orvanic_xr::safe_normalize(XrQuaternionf{q[0], q[1], q[2], q[3]}), {p[0], p[1], p[2]}};
}

XrPosef head_pose(tool_run& run, const json& where) {
    const json answer = answer_of(run, "openxr_get_head_pose", where);
    const auto pose = pose_from(answer.value("pose", json()));
    if (!pose || !is_valid(answer)) throw std::runtime_error("the runtime does not know where the head is");
    return *pose;
}

std::optional<hand_pose> controller_pose(tool_run& run, const json& where, const std::string& hand,
                                         const std::string& kind) {
    json arguments = where;
    arguments["hand"] = hand;
    arguments["pose_type"] = kind;
    const json answer = answer_of(run, "openxr_get_controller_pose", arguments);
    const auto pose = pose_from(answer.value("pose", json()));
    if (!pose || !is_valid(answer)) return std::nullopt;
    return hand_pose{*pose, answer.value("simulated", json()) == true};
}

void take_over(tool_run& run, const json& app) {
    if (const auto aim = controller_pose(run, app, "left", "aim"); aim && aim->is_simulated) return;
    json arguments = app;
    arguments["position"] = {0, 0, 0};
    arguments["base_space"] = "view";
    run.call("openxr_set_head_pose", arguments);
    // The controllers can't be located, and don't go with the head, before the application has synchronized its
    // actions. One without actions never has.
    const auto deadline = std::chrono::steady_clock::now() + kTakeOverLimit;
    const json::json_pointer profile("/left/profile");
    while (std::chrono::steady_clock::now() < deadline) {
        const json told = run.ask("openxr_get_active_interaction_profile", app);
        if (told.is_object() && told.contains(profile) && told[profile].is_string()) return;
        run.wait_for(kBetweenLooks);
    }
}

}  // namespace velmoor
