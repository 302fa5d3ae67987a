// What the layer makes of the loader's chain.
#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

#include "automation/negotiation.h"
#include "tests/fakes/loader_records.h"
#include "tests/fakes/scratch.h"

namespace automation_test {
namespace {

using orvanic_xr::LayerInfo;
using orvanic_xr::NextInfo;
using testing::ElementsAre;

constexpr char kAutomation[] = "XR_EXT_conformance_automation";

// A runtime that has this extension or none, and what it was asked for.
bool has_automation;
std::vector<std::string> enabled;

XrResult XRAPI_PTR TellExtensions(const char* /*layer*/, std::uint32_t capacity, std::uint32_t* count,
                                  XrExtensionProperties* properties) {
    *count = has_automation ? 1 : 0;
    if (capacity > 0) std::strcpy(properties->extensionName, kAutomation);
    return XR_SUCCESS;
}
XrResult XRAPI_PTR Destroy(XrInstance /*instance*/) {
    return XR_SUCCESS;
}
XrResult XRAPI_PTR SetActive(XrSession /*session*/, XrPath /*profile*/, XrPath /*top*/, XrBool32 /*active*/) {
    return XR_SUCCESS;
}
template <class Function>
PFN_xrVoidFunction Erased(Function function) {
    return reinterpret_cast<PFN_xrVoidFunction>(function);
}
XrResult XRAPI_PTR Lookup(XrInstance /*instance*/, const char* name, PFN_xrVoidFunction* function) {
    *function = nullptr;
    const std::string asked = name;
    if (asked == "xrEnumerateInstanceExtensionProperties") *function = Erased(TellExtensions);
    if (asked == "xrDestroyInstance") *function = Erased(Destroy);
    if (asked == "xrSetInputDeviceActiveEXT" && has_automation) *function = Erased(SetActive);
    return *function ? XR_SUCCESS : XR_ERROR_FUNCTION_UNSUPPORTED;
}
XrResult XRAPI_PTR Create(const XrInstanceCreateInfo* info, const XrApiLayerCreateInfo* /*layers*/,
                          XrInstance* instance) {
    enabled.assign(info->enabledExtensionNames, info->enabledExtensionNames + info->enabledExtensionCount);
    *instance = reinterpret_cast<XrInstance>(1);
    return XR_SUCCESS;
}

class AutomationInstance : public testing::Test {
 protected:
    // An application, or a layer above, that enables the extension.
    XrInstance Make() {
        const char* const names[] = {"XR_MND_headless", kAutomation};
        const XrInstanceCreateInfo info = {XR_TYPE_INSTANCE_CREATE_INFO, nullptr, 0, {}, 0, nullptr, 2, names};
        const XrApiLayerCreateInfo layers = LayerInfo(&own_);
        XrInstance instance = XR_NULL_HANDLE;
        EXPECT_EQ(automation::CreateApiLayerInstance(&info, &layers, &instance), XR_SUCCESS);
        return instance;
    }
    static PFN_xrVoidFunction Find(XrInstance instance, const char* name) {
        PFN_xrVoidFunction function = nullptr;
        automation::GetInstanceProcAddr(instance, name, &function);
        return function;
    }
    static void End(XrInstance instance) {
        reinterpret_cast<PFN_xrDestroyInstance>(Find(instance, "xrDestroyInstance"))(instance);
    }

    const orvanic_xr::ScratchDirectory scratch_;
    const orvanic_xr::ScopedVariable state_{"XDG_STATE_HOME", scratch_.path()};
    XrApiLayerNextInfo own_ = NextInfo("XR_APILAYER_VELMOOR_automation", Lookup, Create);
};

TEST_F(AutomationInstance, LeavesToTheRuntimeWhatThatHas) {
    has_automation = false;
    XrInstance instance = Make();
    EXPECT_THAT(enabled, ElementsAre("XR_MND_headless"));
    EXPECT_NE(Find(instance, "xrSetInputDeviceActiveEXT"), nullptr) << "the layer's own";
    End(instance);

    has_automation = true;
    instance = Make();
    EXPECT_THAT(enabled, ElementsAre("XR_MND_headless", kAutomation));
    EXPECT_EQ(Find(instance, "xrSetInputDeviceActiveEXT"), Erased(SetActive));
    End(instance);
    EXPECT_EQ(Find(instance, "xrSetInputDeviceActiveEXT"), nullptr) << "of an instance that is gone";
}

TEST_F(AutomationInstance, SaysThatItLiesAboveVelmoor) {
    XrApiLayerNextInfo lower = NextInfo("XR_APILAYER_KESTX_velmoor", Lookup, Create);
    for (const bool is_below : {false, true}) {
        own_.next = is_below ? &lower : nullptr;
        testing::internal::CaptureStderr();
        End(Make());
        const std::string told = testing::internal::GetCapturedStderr();
        EXPECT_EQ(told.find("lies below this one") != std::string::npos, is_below) << told;
    }
}

}  // namespace
}  // namespace automation_test
