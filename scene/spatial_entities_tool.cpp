// openxr_list_spatial_entities gives the agent the room that SceneContext gathered, located in a reference space
// of the agent's choice.
#include <memory>
#include <optional>
#include <string>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "layer/dispatch/dispatch.h"
#include "scene/scene_context.h"
#include "scene/scene_tools.h"
#include "tools/arguments.h"
#include "tools/json_conversions.h"
#include "tools/session_lookup.h"
#include "tools/tool_results.h"
#include "xr/pose_math.h"

namespace orvanic_xr {
namespace {

constexpr char kName[] = "openxr_list_spatial_entities";

constexpr char kDescription[] =
    "List spatial entities in the OpenXR scene representing the surrounding physical environment. Spatial entities "
    "include objects and boundaries such as rooms, floors, ceilings, walls, tables, couches, lamps, etc. Each entity "
    "includes a unique name, a pose relative to a base reference space, a semantic label, and 2D/3D bounding boxes (if "
    "applicable).";

// The middle of a box, whose offset and extent are given in the space of which `located` is the pose.
json CenterOfBox(const XrPosef& located, const XrVector3f& offset, const XrVector3f& extent) {
    const XrVector3f middle = {offset.x + extent.x * 0.5f, offset.y + extent.y * 0.5f, offset.z + extent.z * 0.5f};
    return pose_to_json({located.orientation, Add(located.position, Rotate(located.orientation, middle))});
}

json BoxToJson(const XrPosef& located, const XrRect2Df& box) {
    return {{"center",
             CenterOfBox(located, {box.offset.x, box.offset.y, 0.0f}, {box.extent.width, box.extent.height, 0.0f})},
            {"size", {{"width", box.extent.width}, {"height", box.extent.height}}}};
}

json BoxToJson(const XrPosef& located, const XrRect3DfKS& box) {
    return {{"center", CenterOfBox(located, {box.offset.x, box.offset.y, box.offset.z},
                                   {box.extent.width, box.extent.height, box.extent.depth})},
            {"size", {{"width", box.extent.width}, {"height", box.extent.height}, {"depth", box.extent.depth}}}};
}

// `located` is empty for an entity that could not be located: it keeps its place in the list, without boxes.
json EntityToJson(const SceneEntity& entity, const std::optional<XrPosef>& located) {
    const auto box_or_null = [&](const auto& box) {
        return box && located ? BoxToJson(*located, *box) : json(nullptr);
    };
    return {{"name", entity.name},
            {"semantic_label", entity.semantic_label},
            {"bounding_box_2d", box_or_null(entity.bounding_box_2d)},
            {"bounding_box_3d", box_or_null(entity.bounding_box_3d)}};
}

// The pose of the entity as the runtime filled it: its validity flags are not looked at, on purpose.
std::optional<XrPosef> LocateEntity(const SessionContext& context, const SceneEntity& entity, XrSpace base_space,
                                    XrTime time) {
    XrSpaceLocation location{XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
    const XrResult result = context.Locate(entity.space, base_space, time, &location);
    if (XR_SUCCEEDED(result)) return location.pose;
    LogWarning(kName, ": xrLocateSpace failed for entity '", entity.name,
               "' with result: ", xr_result_to_string(result));
    return std::nullopt;
}

// The answer speaks of progress in any case; the log tells where there is none.
void WarnIfNeverReady(const SceneContext& scene) {
    if (scene.state() == NotStarted) {
        LogWarning(kName, ": it never started, since the application did not enable the scene extensions");
    } else if (scene.state() == Failed) {
        LogWarning(kName, ": it will never end, since the runtime refused to start it");
    }
}

json handle_list_spatial_entities(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kName, " tool called");
    const SessionResolution resolution = resolve_session_from_arguments(arguments, kName);
    if (!resolution.valid) return make_text_tool_result(resolution.error);
    const std::string base_name = string_argument(arguments, "base_space", default_base_space());
    LogInfo(kName, ": base_space=", PeerText{base_name});
    const std::shared_ptr<SessionContext> context = ContextManager::instance().getSessionContext(resolution.session);
    if (!context || context->ended()) {
        return refuse(kName, Refusal{.log = "SessionContext is not valid", .answer = "SessionContext is not valid."});
    }
    const std::shared_ptr<SceneContext> scene = ContextManager::instance().getSceneContext(resolution.session);
    if (!scene) {
        return refuse(kName, Refusal{.log = "SceneContext not found for the active session",
                                     .answer = "SceneContext not found for the active session."});
    }
    if (!scene->is_ready()) {
        LogWarning(kName, ": Scene query is still in progress");
        WarnIfNeverReady(*scene);
        return make_text_tool_result(
            "Scene query is still in progress. Please try again in a moment when the scene data is ready.");
    }
    const XrSpace base_space = reference_space_for_name(base_name, *context);
    if (base_space == XR_NULL_HANDLE) {
        return refuse(kName, Refusal{.log = "Invalid or unavailable base_space: " + ShownPeerText(base_name),
                                     .answer = invalid_base_space_text(base_name)});
    }
    const XrTime time = context->CurrentLocateTime();
    if (time == 0) {
        LogWarning(kName, ": No frame timing data available");
        return make_text_tool_result("Error: No frame timing data available. No frames have been rendered yet.");
    }
    json entities = json::array();
    for (const auto& [uuid, entity] : scene->entities()) {
        entities.push_back(EntityToJson(entity, LocateEntity(*context, entity, base_space, time)));
    }
    LogInfo(kName, ": Successfully retrieved ", entities.size(), " entities");
    json output = {{"base_space", base_name}, {"entity_count", entities.size()}};
    output["entities"] = std::move(entities);
    return make_json_tool_result(std::move(output));
}

}  // namespace

ToolEntry make_openxr_list_spatial_entities_tool_entry() {
    ToolBuilder builder(kName, kDescription);
    builder.add_number_parameter("session_handle", kSessionHandleDescription, false)
        .add_string_parameter("base_space", base_space_to_read_description(), false)
        .set_hints(true, false, false, true);
    return {builder.build(), handle_list_spatial_entities, {}};
}

}  // namespace orvanic_xr
