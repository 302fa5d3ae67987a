// The automation layer in this process, above the built simulator, of whose own automation it does not know.
#pragma once

#include <openxr/openxr.h>

namespace automation_test {

// In place of the runtime's: also for xrCreateInstance.
PFN_xrGetInstanceProcAddr LayeredLookup();

}  // namespace automation_test
