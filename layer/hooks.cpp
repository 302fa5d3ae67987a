#include "layer/hooks.h"

#include "diagnostics/verbose.h"
#include "external/registration.h"
#include "layer/action_hooks.h"
#include "layer/binding_hooks.h"
#include "layer/dispatch/dispatch.h"
#include "layer/frame_hooks.h"
#include "layer/instance_hooks.h"
#include "layer/session_hooks.h"
#include "layer/space_hooks.h"

namespace orvanic_xr {
namespace {

struct HookRow {
    std::string_view name;
    PFN_xrVoidFunction function;
    bool only_when_verbose = false;
};

template <class Function>
PFN_xrVoidFunction Erased(Function function) {
    return reinterpret_cast<PFN_xrVoidFunction>(function);
}

// In the order of comparison; the first match wins.
const HookRow kHooks[] = {
    {"xrGetInstanceProcAddr", Erased(OrvanicLayerXrGetInstanceProcAddr)},
    {"xrDestroyInstance", Erased(OrvanicLayerXrDestroyInstance)},
    {"xrCreateSession", Erased(OrvanicLayerXrCreateSession)},
    {"xrDestroySession", Erased(OrvanicLayerXrDestroySession)},
    {"xrBeginSession", Erased(OrvanicLayerXrBeginSession)},
    {"xrEndSession", Erased(OrvanicLayerXrEndSession)},
    {"xrPollEvent", Erased(OrvanicLayerXrPollEvent)},
    {"xrWaitFrame", Erased(OrvanicLayerXrWaitFrame)},
    {"xrBeginFrame", Erased(OrvanicLayerXrBeginFrame)},
    {"xrEndFrame", Erased(OrvanicLayerXrEndFrame)},
    {"xrSuggestInteractionProfileBindings", Erased(OrvanicLayerXrSuggestInteractionProfileBindings)},
    {"xrAttachSessionActionSets", Erased(OrvanicLayerXrAttachSessionActionSets)},
    {"xrSyncActions", Erased(OrvanicLayerXrSyncActions)},
    {"xrCreateActionSpace", Erased(OrvanicLayerXrCreateActionSpace)},
    {"xrLocateSpace", Erased(OrvanicLayerXrLocateSpace)},
    {"xrGetActionStatePose", Erased(OrvanicLayerXrGetActionStatePose)},
    {"xrGetActionStateFloat", Erased(OrvanicLayerXrGetActionStateFloat), true},
    {"xrGetActionStateBoolean", Erased(OrvanicLayerXrGetActionStateBoolean), true},
    {"xrDestroySpace", Erased(OrvanicLayerXrDestroySpace)},
    {"xrCreateAction", Erased(OrvanicLayerXrCreateAction)},
    {"xrDestroyAction", Erased(OrvanicLayerXrDestroyAction)},
    {"xrDestroyActionSet", Erased(OrvanicLayerXrDestroyActionSet)},
    {"xrOrvanicRegisterExternalToolKESTX1", Erased(OrvanicLayerXrOrvanicRegisterExternalToolKESTX1)},
};

}  // namespace

PFN_xrVoidFunction FindHook(std::string_view name) {
    for (const HookRow& row : kHooks) {
        // With the switch off such a function goes to the runtime with no code of ours on the way.
        if (row.only_when_verbose && !VerboseLogging()) continue;
        if (row.name == name) return row.function;
    }
    return nullptr;
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrGetInstanceProcAddr(XrInstance instance, const char* name,
                                                                 PFN_xrVoidFunction* function) try {
    if (!name || !function) return XR_ERROR_VALIDATION_FAILURE;
    *function = FindHook(name);
    if (*function) return XR_SUCCESS;
    const DispatchHolder& holder = DispatchHolder::instance();
    if (!holder.has_table()) return XR_ERROR_HANDLE_INVALID;
    return holder.Slot(&NextDispatchTable::GetInstanceProcAddr)(instance, name, function);
} catch (...) {
    return XR_ERROR_VALIDATION_FAILURE;
}

}  // namespace orvanic_xr
