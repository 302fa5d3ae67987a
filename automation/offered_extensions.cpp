#include "automation/offered_extensions.h"

#include <algorithm>
#include <cstring>

#include "automation/guard.h"
#include "xr/input/extensions.h"
#include "xr/simulator_capture_records.h"

namespace automation {
namespace {

constexpr OfferedExtension kOffered[] = {
    {xr_input::kConformanceAutomation, 3, &Parts::input},
    {xr_input::kProntoProfile, 1, &Parts::controller_profile},
    {orvanic_xr::kSimulatorCompositorCaptureExtension, 1, &Parts::pictures},
};

}  // namespace

std::span<const OfferedExtension> OfferedExtensions() {
    return kOffered;
}

const OfferedExtension* FindOffered(std::string_view name) {
    const auto* const found = std::ranges::find(kOffered, name, &OfferedExtension::name);
    return found == std::end(kOffered) ? nullptr : found;
}

XrResult EnumerateInstanceExtensionProperties(const char* /*layer_name*/, std::uint32_t capacity, std::uint32_t* count,
                                              XrExtensionProperties* properties) {
    return Guarded([&] {
        constexpr std::uint32_t kCount = std::size(kOffered);
        if (!count || (!properties && capacity != 0)) return XR_ERROR_VALIDATION_FAILURE;
        *count = kCount;
        if (capacity == 0) return XR_SUCCESS;
        if (capacity < kCount) return XR_ERROR_SIZE_INSUFFICIENT;
        for (std::uint32_t i = 0; i < kCount; ++i) {
            std::strncpy(properties[i].extensionName, kOffered[i].name, XR_MAX_EXTENSION_NAME_SIZE - 1);
            properties[i].extensionName[XR_MAX_EXTENSION_NAME_SIZE - 1] = '\0';
            properties[i].extensionVersion = kOffered[i].version;
        }
        return XR_SUCCESS;
    });
}

}  // namespace automation
