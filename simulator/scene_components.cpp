// What a thing's space tells: its components, boxes, label and contents.
#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/scene.h"
#include "simulator/session.h"
#include "simulator/spaces.h"

namespace simulator {
namespace {

struct ThingSpace {
    std::shared_ptr<Session> session;
    std::size_t index;
    const Thing& thing;
};

ThingSpace CheckedThing(const Runtime& runtime, XrSpace handle) {
    const auto space = runtime.Get(handle);
    if (space->kind != Space::Kind::kThing) Refuse(XR_ERROR_FEATURE_UNSUPPORTED);
    return {space->session, space->thing, space->session->scene.things[space->thing]};
}

ThingSpace CheckedThing(const Runtime& runtime, XrSession session, XrSpace handle) {
    const auto owner = runtime.Get(session);
    const ThingSpace found = CheckedThing(runtime, handle);
    Require(found.session == owner);
    return found;
}

std::vector<XrSpaceComponentTypeKS> ComponentsOf(const Thing& thing) {
    std::vector<XrSpaceComponentTypeKS> types = {XR_SPACE_COMPONENT_TYPE_STORABLE_KS};
    if (!thing.IsContainer()) types.push_back(XR_SPACE_COMPONENT_TYPE_LOCATABLE_KS);
    if (thing.surface) types.push_back(XR_SPACE_COMPONENT_TYPE_BOUNDED_2D_KS);
    if (thing.body) types.push_back(XR_SPACE_COMPONENT_TYPE_BOUNDED_3D_KS);
    if (!thing.label.empty()) types.push_back(XR_SPACE_COMPONENT_TYPE_SEMANTIC_LABELS_KS);
    if (thing.IsContainer()) types.push_back(XR_SPACE_COMPONENT_TYPE_SPACE_CONTAINER_KS);
    return types;
}

void CheckComponent(const Thing& thing, XrSpaceComponentTypeKS type) {
    const auto types = ComponentsOf(thing);
    if (std::find(types.begin(), types.end(), type) == types.end()) Refuse(XR_ERROR_FEATURE_UNSUPPORTED);
}

}  // namespace

Scene::Scene(SceneMode scene_mode) : things(Furnish(scene_mode)), locatable(things.size()) {}

XrResult GetSpaceComponentStatusKS(XrSpace space, XrSpaceComponentTypeKS type, XrSpaceComponentStatusKS* status) {
    return Guarded([&](Runtime& runtime) {
        const ThingSpace found = CheckedThing(runtime, space);
        RequireType(status, XR_TYPE_SPACE_COMPONENT_STATUS_KS);
        CheckComponent(found.thing, type);
        const bool can_change = type == XR_SPACE_COMPONENT_TYPE_LOCATABLE_KS;
        const Locatable& locatable = found.session->scene.locatable[found.index];
        status->enabled = !can_change || locatable.IsEnabled(Now());
        status->changePending = can_change && locatable.IsPending(Now());
        return XR_SUCCESS;
    });
}

XrResult SetSpaceComponentStatusKS(XrSpace space, const XrSpaceComponentStatusSetInfoKS* info,
                                   XrAsyncRequestIdKS* request) {
    return Guarded([&](Runtime& runtime) {
        const ThingSpace found = CheckedThing(runtime, space);
        RequireType(info, XR_TYPE_SPACE_COMPONENT_STATUS_SET_INFO_KS);
        Require(request && info->timeout >= 0);
        CheckComponent(found.thing, info->componentType);
        if (info->componentType != XR_SPACE_COMPONENT_TYPE_LOCATABLE_KS) Refuse(XR_ERROR_FEATURE_UNSUPPORTED);
        Session& owner = *found.session;
        const XrTime now = Now();
        const XrTime settles = now + owner.frames.period();
        Locatable& locatable = owner.scene.locatable[found.index];
        locatable = {locatable.IsEnabled(now), info->enabled != XR_FALSE, settles};
        *request = ++owner.scene.last_request;
        owner.instance->events.Push(
            XrEventDataSpaceSetStatusCompleteKS{XR_TYPE_EVENT_DATA_SPACE_SET_STATUS_COMPLETE_KS, nullptr, *request,
                                                XR_SUCCESS, space, found.thing.uuid, info->componentType,
                                                info->enabled},
            settles);
        return XR_SUCCESS;
    });
}

XrResult EnumerateSpaceSupportedComponentsKS(XrSpace space, std::uint32_t capacity, std::uint32_t* count,
                                             XrSpaceComponentTypeKS* types) {
    return Guarded([&](Runtime& runtime) {
        return WriteList(ComponentsOf(CheckedThing(runtime, space).thing), capacity, count, types);
    });
}

XrResult GetSpaceBoundingBox2DKS(XrSession session, XrSpace space, XrRect2Df* box) {
    return Guarded([&](Runtime& runtime) {
        const ThingSpace found = CheckedThing(runtime, session, space);
        Require(box);
        CheckComponent(found.thing, XR_SPACE_COMPONENT_TYPE_BOUNDED_2D_KS);
        *box = *found.thing.surface;
        return XR_SUCCESS;
    });
}

XrResult GetSpaceBoundingBox3DKS(XrSession session, XrSpace space, XrRect3DfKS* box) {
    return Guarded([&](Runtime& runtime) {
        const ThingSpace found = CheckedThing(runtime, session, space);
        Require(box);
        CheckComponent(found.thing, XR_SPACE_COMPONENT_TYPE_BOUNDED_3D_KS);
        *box = *found.thing.body;
        return XR_SUCCESS;
    });
}

// The label comes without a terminator.
XrResult GetSpaceSemanticLabelsKS(XrSession session, XrSpace space, XrSemanticLabelsKS* labels) {
    return Guarded([&](Runtime& runtime) {
        const ThingSpace found = CheckedThing(runtime, session, space);
        RequireType(labels, XR_TYPE_SEMANTIC_LABELS_KS);
        CheckComponent(found.thing, XR_SPACE_COMPONENT_TYPE_SEMANTIC_LABELS_KS);
        return WriteList(found.thing.label, labels->bufferCapacityInput, &labels->bufferCountOutput, labels->buffer);
    });
}

XrResult GetSpaceContainerKS(XrSession session, XrSpace space, XrSpaceContainerKS* container) {
    return Guarded([&](Runtime& runtime) {
        const ThingSpace found = CheckedThing(runtime, session, space);
        RequireType(container, XR_TYPE_SPACE_CONTAINER_KS);
        CheckComponent(found.thing, XR_SPACE_COMPONENT_TYPE_SPACE_CONTAINER_KS);
        return WriteList(found.thing.contents, container->uuidCapacityInput, &container->uuidCountOutput,
                         container->uuids);
    });
}

}  // namespace simulator
