// The guard that lets no exception into the application, written once for all hooks.
#pragma once

#include <openxr/openxr.h>

#include "diagnostics/logger.h"

namespace automation {

// Returns what `body` returns, an XrResult.
template <class Body>
XrResult Guarded(Body body, const char* name = __builtin_FUNCTION()) noexcept {
    try {
        return body();
    } catch (...) {
        orvanic_xr::LogError("Automation: exception in ", name);
        return XR_ERROR_RUNTIME_FAILURE;
    }
}

// The layer's own work after a call that succeeded: what fails in it is not the application's affair.
template <class Work>
void GuardOwnWork(Work work, const char* name = __builtin_FUNCTION()) noexcept {
    try {
        work();
    } catch (...) {
        orvanic_xr::LogError("Automation: exception in ", name);
    }
}

}  // namespace automation
