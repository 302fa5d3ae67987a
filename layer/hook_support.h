// What every hook shares: the guard that lets no exception into the application, and the way to the next
// layer's function. A hook reads
//
//     XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrEndSession(XrSession session) {
//         return GuardHook({"OrvanicLayerXrEndSession"}, [&] {
//             const auto end_session = NextFunction(&NextDispatchTable::EndSession, "xrEndSession");
//             if (!end_session) return XR_ERROR_RUNTIME_FAILURE;
//             return end_session(session);
//         });
//     }
//
// with the layer's own work before or after the forward. Hooks run on the application's threads.
#pragma once

#include <openxr/openxr.h>

#include <utility>

#include "diagnostics/logger.h"
#include "layer/dispatch/dispatch.h"

namespace orvanic_xr {

// What an exception in a hook comes to.
struct HookGuard {
    const char* name;                             // of the hook, for the log line
    XrResult failure = XR_ERROR_RUNTIME_FAILURE;  // what the application is told
    bool telemetry = true;                        // whether telemetry hears of it
    void (*after_report)() noexcept = nullptr;    // runs last, when all is logged
};

// For hooks of which telemetry does not hear.
constexpr HookGuard WithoutTelemetry(const char* name) {
    return {name, XR_ERROR_RUNTIME_FAILURE, false};
}

// Logs "Exception in <hook>" and tells telemetry if the guard says so.
void ReportHookException(const HookGuard& guard) noexcept;

// Returns what `body` returns, an XrResult. The one catch around all hooks.
template <class Body>
XrResult GuardHook(const HookGuard& guard, Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        ReportHookException(guard);
        return guard.failure;
    }
}

// Work of the layer's own that comes before the forward: an exception in it is reported like the hook's, but the
// application's call goes on. False if there was one.
template <class Work>
bool GuardOwnWork(const HookGuard& guard, Work&& work) noexcept {
    try {
        std::forward<Work>(work)();
        return true;
    } catch (...) {
        ReportHookException(guard);
        return false;
    }
}

// A copy of a slot, as NextFunction(&NextDispatchTable::LocateSpace, "xrLocateSpace"), to be called with nothing
// locked. Null, with an error line, when there is no table yet or the next layer lacks the function.
template <class Function>
Function NextFunction(Function NextDispatchTable::*slot, const char* name) {
    const DispatchHolder& holder = DispatchHolder::instance();
    if (!holder.has_table()) {
        LogError("Next dispatch table is not valid");
        return nullptr;
    }
    const Function function = holder.Slot(slot);
    if (!function) LogError("Next ", name, " is null");
    return function;
}

}  // namespace orvanic_xr
