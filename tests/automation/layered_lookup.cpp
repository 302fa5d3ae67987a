#include "tests/automation/layered_lookup.h"

#include <cstring>
#include <string_view>
#include <vector>

#include "automation/negotiation.h"
#include "tests/fakes/loader_records.h"
#include "tests/fakes/scratch.h"
#include "tests/simulator/simulator_fixture.h"

namespace automation_test {
namespace {

template <class Function>
PFN_xrVoidFunction Erased(Function function) {
    return reinterpret_cast<PFN_xrVoidFunction>(function);
}

// To the layer the runtime has nothing but a clock: what it has besides plays the part of real devices.
XRAPI_ATTR XrResult XRAPI_CALL EnumerateBelow(const char* /*layer*/, std::uint32_t capacity, std::uint32_t* count,
                                              XrExtensionProperties* properties) {
    *count = 1;
    if (capacity > 0) std::strcpy(properties->extensionName, "XR_KHR_convert_timespec_time");
    return XR_SUCCESS;
}

XRAPI_ATTR XrResult XRAPI_CALL LookupBelow(XrInstance instance, const char* name, PFN_xrVoidFunction* function) {
    const auto replaced = ReplacedBelow().find(name);
    if (instance != XR_NULL_HANDLE && replaced != ReplacedBelow().end()) {
        *function = replaced->second;
        return XR_SUCCESS;
    }
    if (instance != XR_NULL_HANDLE) return simulator_test::RuntimeLookup()(instance, name, function);
    *function = Erased(EnumerateBelow);
    return XR_SUCCESS;
}

XRAPI_ATTR XrResult XRAPI_CALL CreateBelow(const XrInstanceCreateInfo* passed, const XrApiLayerCreateInfo* /*layers*/,
                                           XrInstance* instance) {
    std::vector<const char*> names(passed->enabledExtensionNames,
                                   passed->enabledExtensionNames + passed->enabledExtensionCount);
    for (const char* name : names) EXPECT_STRNE(name, "XR_EXT_conformance_automation") << "the layer keeps its own";
    names.push_back("XR_EXT_conformance_automation");
    XrInstanceCreateInfo info = *passed;
    info.enabledExtensionCount = static_cast<std::uint32_t>(names.size());
    info.enabledExtensionNames = names.data();
    PFN_xrCreateInstance create = nullptr;
    simulator_test::RuntimeLookup()(XR_NULL_HANDLE, "xrCreateInstance", reinterpret_cast<PFN_xrVoidFunction*>(&create));
    return create(&info, instance);
}

XRAPI_ATTR XrResult XRAPI_CALL CreateLayered(const XrInstanceCreateInfo* info, XrInstance* instance) {
    XrApiLayerNextInfo next = orvanic_xr::NextInfo("XR_APILAYER_VELMOOR_automation", LookupBelow, CreateBelow);
    const XrApiLayerCreateInfo layers = orvanic_xr::LayerInfo(&next);
    return automation::CreateApiLayerInstance(info, &layers, instance);
}

XRAPI_ATTR XrResult XRAPI_CALL Lookup(XrInstance instance, const char* name, PFN_xrVoidFunction* function) {
    if (instance != XR_NULL_HANDLE) return automation::GetInstanceProcAddr(instance, name, function);
    if (std::string_view(name) != "xrCreateInstance") {
        return simulator_test::RuntimeLookup()(instance, name, function);
    }
    *function = Erased(CreateLayered);
    return XR_SUCCESS;
}

}  // namespace

PFN_xrGetInstanceProcAddr LayeredLookup() {
    // For the layer's logs.
    static const orvanic_xr::ScratchDirectory scratch;
    static const orvanic_xr::ScopedVariable state("XDG_STATE_HOME", scratch.path());
    return Lookup;
}

std::map<std::string_view, PFN_xrVoidFunction>& ReplacedBelow() {
    static std::map<std::string_view, PFN_xrVoidFunction> replaced;
    return replaced;
}

}  // namespace automation_test
