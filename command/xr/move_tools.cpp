// xr_move, xr_look_at and xr_point_at.
#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>

#include "command/bridge/arguments.h"
#include "command/bridge/bridge.h"
#include "command/bridge/results.h"
#include "command/xr/aim.h"
#include "command/xr/picture_memory.h"
#include "command/xr/poses.h"
#include "command/xr/xr_tools.h"
#include "xr/pose_math.h"

namespace velmoor {
namespace {

using memory_pointer = std::shared_ptr<const picture_memory>;

constexpr double kMostMetres = 10000;
constexpr double kMostSeconds = 600;
constexpr float kUsualDistance = 2;  // along a ray that meets nothing
constexpr float kRadians = 3.14159265f / 180;

float metres(const json& arguments, const char* name) {
    return static_cast<float>(number_argument(arguments, name, 0, -kMostMetres, kMostMetres));
}

float degrees(const json& arguments, const char* name) {
    return static_cast<float>(number_argument(arguments, name, 0, -360, 360)) * kRadians;
}

double duration_of(const json& arguments) {
    return number_argument(arguments, "duration_seconds", 0, 0, kMostSeconds);
}

json with(json where, const json& more) {
    where.update(more);
    return where;
}

// The head goes there, and what the hands hold goes with it: the layer's tool moves their aim poses alone.
json move_head(tool_run& run, const json& where, const XrPosef& from, const XrPosef& to, double duration) {
    const json lasting{{"duration_seconds", duration}};
    std::vector<planned_call> calls{{"openxr_set_head_pose", with(with(where, lasting), to_json(to))}};
    for (const char* const hand : {"left", "right"}) {
        const auto grip = controller_pose(run, where, hand, "grip");
        if (!grip) continue;
        json arguments = with(with(where, lasting), to_json(carried(grip->pose, from, to)));
        arguments["hand"] = hand;
        arguments["pose_type"] = "grip";
        calls.push_back({"openxr_set_controller_pose", std::move(arguments)});
    }
    run.call_all(calls);
    return text_result(mcp::dump_json({{"head", to_json(to)}}), false);
}

json move(const json& arguments, tool_run& run) {
    const step by{.ahead = metres(arguments, "ahead"),
                  .right = metres(arguments, "right"),
                  .up = metres(arguments, "up"),
                  .turn_left = degrees(arguments, "turn_left"),
                  .look_up = degrees(arguments, "look_up")};
    const double duration = duration_of(arguments);
    const json where = app_of(arguments);
    run.stay_with(arguments);
    take_over(run, where);
    const XrPosef from = head_pose(run, where);
    return move_head(run, where, from, moved(from, by), duration);
}

// What is meant: a point, or what lies behind a place in a picture.
struct target {
    json where;  // the space of what follows, and the application
    XrVector3f point = {};
    std::optional<ray> along;
    std::string name;
};

json entities_of(tool_run& run, const json& where) {
    const json answer = answer_of(run, "openxr_list_spatial_entities", where);
    const json entities = answer.is_object() ? answer.value("entities", json()) : json();
    return entities.is_array() ? entities : json::array();
}

// The box of an entity, and its flat one where there is no other.
struct box {
    XrPosef center;
    XrVector3f size;
};
std::optional<box> box_of(const json& entity) {
    for (const char* const name : {"bounding_box_3d", "bounding_box_2d"}) {
        const json told = entity.is_object() ? entity.value(name, json()) : json();
        const auto center = told.is_object() ? pose_from(told.value("center", json())) : std::nullopt;
        const json size = told.is_object() ? told.value("size", json()) : json();
        if (!center || !size.is_object()) continue;
        return box{*center, {size.value("width", 0.0f), size.value("height", 0.0f), size.value("depth", 0.0f)}};
    }
    return std::nullopt;
}

target entity_target(tool_run& run, const json& where, const std::string& wanted) {
    std::vector<json> named;
    std::string names;
    for (const json& each : entities_of(run, where)) {
        const std::string name = each.value("name", "");
        if (name != wanted && each.value("semantic_label", "") != wanted) continue;
        named.push_back(each);
        names.append(names.empty() ? "" : ", ").append(name);
    }
    if (named.empty()) {
        for (const json& each : entities_of(run, where)) {
            names.append(names.empty() ? "" : ", ").append(each.value("name", ""));
        }
        throw std::runtime_error("no entity is called \"" + wanted +
                                 "\"; there are: " + (names.empty() ? "none, or they are not known yet" : names));
    }
    if (named.size() > 1) throw std::runtime_error("\"" + wanted + "\" may be each of these; name one: " + names);
    const auto found = box_of(named.front());
    if (!found) throw std::runtime_error(names + " has no box, so that its place is not known");
    return {where, found->center.position, std::nullopt, names};
}

target pixel_target(tool_run& run, const picture_memory& memory, const json& arguments) {
    const std::vector<double> pixel = numbers_argument(arguments, "pixel", 2, 0, 100000);
    const std::string eye = choice_argument(arguments, "eye", {"left", "right"});
    const auto last = memory.last_of(eye);
    if (!last) throw std::runtime_error("there is no picture of that eye yet; xr_picture takes one");
    if (!last->unknown.empty()) throw std::runtime_error(last->unknown);
    if (last->process != run.through().process_for(app_name(arguments))) {
        throw std::runtime_error("the last picture is of another application, or of an earlier run; take a new one");
    }
    if (pixel[0] > last->width || pixel[1] > last->height) {
        throw std::runtime_error("the last picture has " + std::to_string(last->width) + " by " +
                                 std::to_string(last->height) + " pixels");
    }
    // The middle of the pixel, as a part of all that the eye sees.
    const auto part = [](double at, int size, double from, double to) {
        return static_cast<float>(from + (to - from) * std::min((at + 0.5) / size, 1.0));
    };
    const float x = part(pixel[0], last->width, last->left, last->right);
    const float y = part(pixel[1], last->height, last->top, last->bottom);
    target found{app_of(arguments), {}, ray_through(last->eye, last->fov, x, y), "what the pixel shows"};
    const double given = number_argument(arguments, "distance", 0, 0, kMostMetres);
    float distance = given > 0 ? static_cast<float>(given) : std::numeric_limits<float>::infinity();
    for (const json& each : given > 0 ? json::array() : entities_of(run, found.where)) {
        const auto its = box_of(each);
        const auto meets = its ? distance_to_box(*found.along, its->center, its->size) : std::nullopt;
        if (!meets || *meets >= distance) continue;
        distance = *meets;
        found.name = each.value("name", "");
    }
    if (std::isinf(distance)) distance = kUsualDistance;
    const XrVector3f& way = found.along->direction;
    found.point = orvanic_xr::Add(found.along->origin, {way.x * distance, way.y * distance, way.z * distance});
    return found;
}

target target_of(tool_run& run, const picture_memory& memory, const json& arguments) {
    const auto is_given = [&](const char* name) { return !arguments.value(name, json()).is_null(); };
    if (is_given("point") + is_given("entity") + is_given("pixel") != 1) {
        throw std::runtime_error("name one of: point, entity, pixel");
    }
    const std::string entity = text_argument(arguments, "entity");
    if (is_given("entity") && entity.empty()) throw std::runtime_error("entity must not be empty");
    run.stay_with(arguments);
    if (is_given("pixel")) return pixel_target(run, memory, arguments);
    json where = app_of(arguments);
    const std::string space = text_argument(arguments, "base_space");
    // What moves with the head is no ground to turn it on.
    if (!space.empty() && space != "view") where["base_space"] = space;
    if (is_given("entity")) return entity_target(run, where, entity);
    const std::vector<double> p = numbers_argument(arguments, "point", 3, -kMostMetres, kMostMetres);
    XrVector3f point = {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
    if (space == "view") {
        point = orvanic_xr::Compose(head_pose(run, where), {orvanic_xr::kIdentityPose.orientation, point}).position;
    }
    return {where, point, std::nullopt, "the point"};
}

// From there to there. The same place has no direction.
XrVector3f direction(const XrVector3f& from, const XrVector3f& to, const std::string& name) {
    const XrVector3f way = orvanic_xr::Add(to, orvanic_xr::Negate(from));
    if (orvanic_xr::Length(way) < 1e-3f) throw std::runtime_error(name + " is where it is to be seen from");
    return way;
}

json told(const target& at, const char* what, const XrPosef& pose) {
    json text{{what, to_json(pose)}, {"at", at.name}};
    text["point"] = {at.point.x, at.point.y, at.point.z};
    return text_result(mcp::dump_json(text), false);
}

json look_at(const memory_pointer& memory, const json& arguments, tool_run& run) {
    const double duration = duration_of(arguments);
    const target at = target_of(run, *memory, arguments);
    take_over(run, app_of(arguments));
    const XrPosef from = head_pose(run, at.where);
    const XrQuaternionf turned = facing(direction(from.position, at.point, at.name), heading_of(from.orientation));
    const XrPosef to = {turned, from.position};
    move_head(run, at.where, from, to, duration);
    return told(at, "head", to);
}

json point_at(const memory_pointer& memory, const json& arguments, tool_run& run) {
    const std::string hand = choice_argument(arguments, "hand", {"right", "left"});
    const double duration = duration_of(arguments);
    const target at = target_of(run, *memory, arguments);
    take_over(run, app_of(arguments));
    const auto aim = controller_pose(run, at.where, hand, "aim");
    const auto grip = controller_pose(run, at.where, hand, "grip");
    if (!aim || !grip) throw std::runtime_error("the runtime does not know where the " + hand + " controller is");
    const XrPosef to = {facing(direction(aim->pose.position, at.point, at.name), heading_of(aim->pose.orientation)),
                        aim->pose.position};
    std::vector<planned_call> calls;
    for (const auto& [kind, pose] : {std::pair("aim", to), std::pair("grip", carried(grip->pose, aim->pose, to))}) {
        json each = with(with(at.where, {{"duration_seconds", duration}}), to_json(pose));
        each["hand"] = hand;
        each["pose_type"] = kind;
        calls.push_back({"openxr_set_controller_pose", std::move(each)});
    }
    run.call_all(calls);
    return told(at, "aim", to);
}

json target_properties() {
    return {{"point", numbers_property(3, "Metres in base_space")},
            {"entity", property("string", "Name or semantic label of a spatial entity")},
            {"pixel", numbers_property(2, "x and y in the last xr_picture of that eye")},
            {"eye", choice_property({"left", "right"}, "Of the pixel; default left")},
            {"distance", property("number", "Metres to what the pixel shows; else to the entity there, or 2")},
            {"base_space", property("string", "As of openxr_set_head_pose")},
            {"duration_seconds", property("number", "Default 0")}};
}

}  // namespace

own_tool make_move_tool() {
    return {own_declaration("xr_move",
                            "Moves head and hands by where the user looks: metres along the level, then degrees.",
                            {{"ahead", property("number", "Metres; less than 0 goes back")},
                             {"right", property("number", "Metres")},
                             {"up", property("number", "Metres")},
                             {"turn_left", property("number", "Degrees")},
                             {"look_up", property("number", "Degrees")},
                             {"duration_seconds", property("number", "Default 0")}},
                            false),
            move};
}

own_tool make_look_tool(const std::shared_ptr<picture_memory>& memory) {
    return {own_declaration("xr_look_at", "Turns the head, upright, to a point, an entity or a pixel.",
                            target_properties(), false),
            [memory](const json& arguments, tool_run& run) { return look_at(memory, arguments, run); }};
}

own_tool make_point_tool(const std::shared_ptr<picture_memory>& memory) {
    json properties = target_properties();
    properties["hand"] = choice_property({"right", "left"}, "Default right");
    return {own_declaration("xr_point_at",
                            "Turns a controller, its aim and what it grips, to a point, an entity or a pixel.",
                            std::move(properties), false),
            [memory](const json& arguments, tool_run& run) { return point_at(memory, arguments, run); }};
}

}  // namespace velmoor
