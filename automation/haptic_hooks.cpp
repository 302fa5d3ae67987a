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
    if (!info) return XR_ERROR_VALIDATION_FAILURE;
    const NextFunctions& next = owner->instance->next;
    const auto action = Registry::instance().Find(info->action);
    const bool is_driven = action && action->type == XR_ACTION_TYPE_VIBRATION_OUTPUT && owner->Concerns(*action);
    if (!is_driven || owner->IsReal(info->subactionPath)) return call(next, *info);
    const auto real = static_cast<TopLevels>(action->suggested_on & ~owner->simulated);
    if (info->subactionPath == XR_NULL_PATH && action->subactions == 0 && real != 0) return call(next, *info);
    bool is_felt = false;
    for (const XrPath path : action->subaction_paths) {
        if (info->subactionPath != XR_NULL_PATH || !owner->IsReal(path)) continue;
        is_felt = true;
        XrHapticActionInfo one = *info;
        one.subactionPath = path;
        if (const XrResult result = call(next, one); result != XR_SUCCESS) return result;
    }
    // What nobody feels is checked by the runtime all the same. Of a device that was taken over it lets the motor rest.
    return is_felt ? XR_SUCCESS : next.StopHapticFeedback(session, info);
}

}  // namespace

XrResult ApplyHapticFeedback(XrSession session, const XrHapticActionInfo* info, const XrHapticBaseHeader* feedback) {
    return Guarded([&] {
        // All else of it is the affair of who vibrates: there may be kinds that only the runtime knows.
        if (!feedback) return XR_ERROR_VALIDATION_FAILURE;
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
