// Images that somebody else made for an application: swapchains belong to the runtime, and an API layer reads them
// beside it, with the application's own device or context.
//
// Nothing is made before the first image is read. Devices and images are made, used and destroyed where OpenXR lets
// the application's queue or context be used: in xrReleaseSwapchainImage, and in xrDestroySession. All may throw a
// Refusal.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <memory>

#include "simulator/graphics/raw_image.h"

struct VkInstance_T;
struct XrVulkanInstanceCreateInfoKHR;

namespace simulator {

// Of one swapchain. Owns none of them.
class ForeignImages {
 public:
    ForeignImages() = default;
    ForeignImages(const ForeignImages&) = delete;
    ForeignImages& operator=(const ForeignImages&) = delete;
    virtual ~ForeignImages() = default;

    // A copy of the first mip level of one layer, of an image that the application has acquired and is about to
    // release. Waits for what was drawn, and leaves the image as it was.
    virtual RawImage Read(std::uint32_t index, std::uint32_t layer) = 0;
};

class ForeignDevice {
 public:
    ForeignDevice() = default;
    ForeignDevice(const ForeignDevice&) = delete;
    ForeignDevice& operator=(const ForeignDevice&) = delete;
    virtual ~ForeignDevice() = default;

    // `info` is what the swapchain was made by: of a format that can be read, with the usage that takes.
    virtual std::unique_ptr<ForeignImages> ImagesOf(XrSwapchain swapchain, const XrSwapchainCreateInfo& info,
                                                    PFN_xrEnumerateSwapchainImages enumerate) = 0;
};

// What a session was bound to: a copy of the application's record.
class ForeignBinding {
 public:
    ForeignBinding() = default;
    ForeignBinding(const ForeignBinding&) = delete;
    ForeignBinding& operator=(const ForeignBinding&) = delete;
    virtual ~ForeignBinding() = default;

    virtual bool CanRead(std::int64_t format) const = 0;
    // Without which images can't be read.
    virtual XrSwapchainUsageFlags UsageToRead() const = 0;
    virtual std::unique_ptr<ForeignDevice> MakeDevice() const = 0;
};

// How the application finds Vulkan's functions: as it told xrCreateVulkanInstanceKHR.
using VulkanInstanceLookup = void (*(*)(VkInstance_T*, const char*))();
VulkanInstanceLookup LookupOf(const XrVulkanInstanceCreateInfoKHR& info);

// Of the chain of an XrSessionCreateInfo. Null for a binding that is not known, and for a headless session. Without a
// lookup, the one of the system's libvulkan is used.
std::unique_ptr<ForeignBinding> CopyBinding(const void* chain, VulkanInstanceLookup lookup = nullptr);

}  // namespace simulator
