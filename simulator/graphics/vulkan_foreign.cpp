#include "simulator/graphics/vulkan_foreign.h"

#include <utility>

#include "simulator/graphics/foreign_records.h"
#include "simulator/graphics/vulkan_queue.h"
#include "simulator/graphics/vulkan_reader.h"

namespace simulator {
namespace {

class Images : public ForeignImages {
 public:
    Images(std::shared_ptr<VulkanReader> reader, const XrSwapchainCreateInfo& info,
           std::vector<XrSwapchainImageVulkanKHR> records)
        : reader_(std::move(reader)), info_(info), records_(std::move(records)) {}

    // Colour is in this layout whenever the application gives it back.
    RawImage Read(std::uint32_t index, std::uint32_t layer) override {
        if (index >= records_.size()) Refuse(XR_ERROR_RUNTIME_FAILURE);
        return reader_->Read({records_[index].image, static_cast<VkFormat>(info_.format), info_.width, info_.height,
                              layer, static_cast<VkSampleCountFlagBits>(info_.sampleCount),
                              VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL});
    }

 private:
    const std::shared_ptr<VulkanReader> reader_;
    const XrSwapchainCreateInfo info_;
    const std::vector<XrSwapchainImageVulkanKHR> records_;
};

class Device : public ForeignDevice {
 public:
    Device(PFN_vkGetInstanceProcAddr lookup, const XrGraphicsBindingVulkanKHR& binding)
        : reader_(std::make_shared<VulkanReader>(std::make_shared<VulkanQueue>(lookup, binding))) {}

    std::unique_ptr<ForeignImages> ImagesOf(XrSwapchain swapchain, const XrSwapchainCreateInfo& info,
                                            PFN_xrEnumerateSwapchainImages enumerate) override {
        const XrSwapchainImageVulkanKHR blank = {XR_TYPE_SWAPCHAIN_IMAGE_VULKAN_KHR, nullptr, VK_NULL_HANDLE};
        return std::make_unique<Images>(reader_, info, ImageRecords(swapchain, enumerate, blank));
    }

 private:
    const std::shared_ptr<VulkanReader> reader_;
};

class Binding : public ForeignBinding {
 public:
    Binding(const XrGraphicsBindingVulkanKHR& binding, VulkanInstanceLookup lookup)
        : binding_(binding), lookup_(lookup) {
        binding_.next = nullptr;
    }

    bool CanRead(std::int64_t format) const override {
        PixelKind kind;
        bool is_srgb;
        return PixelsOf(static_cast<VkFormat>(format), kind, is_srgb);
    }

    XrSwapchainUsageFlags UsageToRead() const override { return XR_SWAPCHAIN_USAGE_TRANSFER_SRC_BIT; }

    std::unique_ptr<ForeignDevice> MakeDevice() const override {
        return std::make_unique<Device>(lookup_ ? lookup_ : VulkanLookup(), binding_);
    }

 private:
    XrGraphicsBindingVulkanKHR binding_;
    const VulkanInstanceLookup lookup_;
};

}  // namespace

VulkanInstanceLookup LookupOf(const XrVulkanInstanceCreateInfoKHR& info) {
    return info.pfnGetInstanceProcAddr;
}

std::unique_ptr<ForeignBinding> CopyVulkanBinding(const XrBaseInStructure& binding, VulkanInstanceLookup lookup) {
    return std::make_unique<Binding>(reinterpret_cast<const XrGraphicsBindingVulkanKHR&>(binding), lookup);
}

}  // namespace simulator
