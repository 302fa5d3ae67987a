#include "automation/next_functions.h"

namespace automation {

NextFunctions::NextFunctions(PFN_xrGetInstanceProcAddr next, XrInstance instance) : GetInstanceProcAddr(next) {
    const auto load = [&](auto& function, const char* name) {
        PFN_xrVoidFunction found = nullptr;
        if (XR_SUCCEEDED(next(instance, name, &found))) function = reinterpret_cast<decltype(+function)>(found);
    };
#define VELMOOR_LOAD(Name) load(Name, "xr" #Name);
    VELMOOR_AUTOMATION_NEXT(VELMOOR_LOAD)
#undef VELMOOR_LOAD
}

}  // namespace automation
