// Vibrations: real devices have theirs, those for simulated ones are swallowed.
#include "automation/guard.h"
#include "automation/hooks.h"
#include "automation/session.h"

namespace automation {
namespace {

// `call(info)` for the real devices that the action drives. The runtime alone decides where no simulated one has it.
template <class Call>
XrResult ForRealDevices(XrSession session, const XrHapticActionInfo* info, Call call) {
    const auto owner = Registry::instance().Find(session);
    if (!owner) return XR_ERROR_HANDLE_INVALID;
    const auto action = info ? Registry::instance().Find(info->action) : nullptr;
    const bool is_driven = action && action->type == XR_ACTION_TYPE_VIBRATION_OUTPUT && owner->Concerns(*action);
    if (!info) return XR_ERROR_VALIDATION_FAILURE;
    if (!is_driven) return call(owner->instance->next, *info);
    bool focused = false;
    {
        const std::lock_guard lock(owner->mutex);
        focused = owner->focused;
    }
    const XrResult swallowed = focused ? XR_SUCCESS : XR_SESSION_NOT_FOCUSED;
    if (owner->IsReal(info->subactionPath)) return call(owner->instance->next, *info);
    if (info->subactionPath != XR_NULL_PATH) return swallowed;
    const auto real = static_cast<TopLevels>(action->suggested_on & ~owner->simulated);
    if (action->subactions == 0) return real != 0 ? call(owner->instance->next, *info) : swallowed;
    XrResult result = swallowed;
    for (const XrPath path : action->subaction_paths) {
        if (!owner->IsReal(path)) continue;
        XrHapticActionInfo one = *info;
        one.subactionPath = path;
        result = call(owner->instance->next, one);
        if (XR_FAILED(result)) return result;
    }
    return result;
}

}  // namespace

XrResult ApplyHapticFeedback(XrSession session, const XrHapticActionInfo* info, const XrHapticBaseHeader* feedback) {
    return Guarded([&] {
        return ForRealDevices(session, info, [&](const NextFunctions& next, const XrHapticActionInfo& one) {
            return next.ApplyHapticFeedback(session, &one, feedback);
        });
    });
}

XrResult StopHapticFeedback(XrSession session, const XrHapticActionInfo* info) {
    return Guarded([&] {
        return ForRealDevices(session, info, [&](const NextFunctions& next, const XrHapticActionInfo& one) {
            return next.StopHapticFeedback(session, &one);
        });
    });
}

}  // namespace automation
