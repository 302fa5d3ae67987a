// The chain of API layers as the OpenXR loader describes it at creation.
#pragma once

#include <openxr/openxr.h>
#include <openxr/openxr_loader_negotiation.h>

#include <cstdint>
#include <set>
#include <string>

namespace orvanic_xr {

// Whether an entry is the published record or a larger one; its `next` may be followed then.
constexpr bool IsReadable(const XrApiLayerNextInfo& entry) {
    static_assert(sizeof(XrApiLayerNextInfo) == 296);
    return entry.structType == XR_LOADER_INTERFACE_STRUCT_API_LAYER_NEXT_INFO && entry.structVersion != 0 &&
           entry.structSize >= sizeof(XrApiLayerNextInfo);
}

// What the layer or runtime behind one entry tells of its instance extensions.
struct ToldExtensions {
    enum class Failure : std::uint8_t { kNone, kNoFunction, kFirstCall, kSecondCall };

    Failure failure = Failure::kNone;
    // Of the call that failed.
    XrResult result = XR_SUCCESS;
    std::set<std::string> names;
};

// Calls xrEnumerateInstanceExtensionProperties, with no instance. A layer can answer for itself alone, for it does not
// know yet what lies below it, and some don't answer at all: who wants to know all asks every entry. The last one leads
// to the runtime.
ToldExtensions AskForExtensions(PFN_xrGetInstanceProcAddr get_instance_proc_addr);

}  // namespace orvanic_xr
