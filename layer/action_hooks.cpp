#include "layer/action_hooks.h"

#include "layer/action_maps.h"
#include "layer/binding_mirror.h"
#include "layer/hook_support.h"

namespace orvanic_xr {
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrCreateAction(XrActionSet actionSet, const XrActionCreateInfo* createInfo,
                                                          XrAction* action) {
    return GuardHook(WithoutTelemetry("OrvanicLayerXrCreateAction"), [&] {
        const auto create = NextFunction(&NextDispatchTable::CreateAction, "xrCreateAction");
        if (!create) return XR_ERROR_RUNTIME_FAILURE;
        const XrResult result = create(actionSet, createInfo, action);
        if (action && XR_SUCCEEDED(result)) BindingMirror::instance().NoteAction(*action, actionSet);
        return result;
    });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrDestroyAction(XrAction action) {
    return GuardHook(WithoutTelemetry("OrvanicLayerXrDestroyAction"), [&] {
        ActionMaps::instance().ForgetAction(action);
        BindingMirror::instance().ForgetAction(action);
        const auto destroy = NextFunction(&NextDispatchTable::DestroyAction, "xrDestroyAction");
        return destroy ? destroy(action) : XR_ERROR_RUNTIME_FAILURE;
    });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrDestroyActionSet(XrActionSet actionSet) {
    return GuardHook(WithoutTelemetry("OrvanicLayerXrDestroyActionSet"), [&] {
        for (const XrAction action : BindingMirror::instance().ForgetActionsOf(actionSet)) {
            ActionMaps::instance().ForgetAction(action);
        }
        const auto destroy = NextFunction(&NextDispatchTable::DestroyActionSet, "xrDestroyActionSet");
        return destroy ? destroy(actionSet) : XR_ERROR_RUNTIME_FAILURE;
    });
}

}  // namespace orvanic_xr
