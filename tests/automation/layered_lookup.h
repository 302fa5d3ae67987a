// The automation layer in this process, above the built simulator, of whose own automation it does not know.
#pragma once

#include <openxr/openxr.h>

#include <map>
#include <string_view>

namespace automation_test {

// In place of the runtime's: also for xrCreateInstance.
PFN_xrGetInstanceProcAddr LayeredLookup();

// Functions that the layer finds below it in place of the simulator's, for all of an instance's life.
std::map<std::string_view, PFN_xrVoidFunction>& ReplacedBelow();

}  // namespace automation_test
