#include "layer/hook_support.h"

#include "diagnostics/telemetry.h"

namespace orvanic_xr {

void ReportHookException(const HookGuard& guard) noexcept {
    LogError("Exception in ", guard.name);
    try {
        if (guard.telemetry) Telemetry::instance().error("layer", "hook_exception");
    } catch (...) {  // the line is all that can be told
    }
    if (guard.after_report) guard.after_report();
}

}  // namespace orvanic_xr
