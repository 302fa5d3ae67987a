#include "simulator/graphics/vulkan_device.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <utility>

#include "simulator/graphics/vulkan_queue.h"
#include "simulator/graphics/vulkan_reader.h"
#include "simulator/refusal.h"

namespace simulator {
namespace {

constexpr VkFormat kFormats[] = {VK_FORMAT_R8G8B8A8_SRGB,  VK_FORMAT_B8G8R8A8_SRGB,       VK_FORMAT_R8G8B8A8_UNORM,
                                 VK_FORMAT_B8G8R8A8_UNORM, VK_FORMAT_R16G16B16A16_SFLOAT, VK_FORMAT_D32_SFLOAT,
                                 VK_FORMAT_D16_UNORM,      VK_FORMAT_D24_UNORM_S8_UINT,   VK_FORMAT_D32_SFLOAT_S8_UINT};

VkImageAspectFlags AspectsOf(VkFormat format) {
    switch (format) {
        case VK_FORMAT_D32_SFLOAT:
        case VK_FORMAT_D16_UNORM:
            return VK_IMAGE_ASPECT_DEPTH_BIT;
        case VK_FORMAT_D24_UNORM_S8_UINT:
        case VK_FORMAT_D32_SFLOAT_S8_UINT:
            return VK_IMAGE_ASPECT_DEPTH_BIT | VK_IMAGE_ASPECT_STENCIL_BIT;
        default:
            return VK_IMAGE_ASPECT_COLOR_BIT;
    }
}

bool HoldsColour(VkFormat format) {
    return AspectsOf(format) == VK_IMAGE_ASPECT_COLOR_BIT;
}

// In which OpenXR hands images out and gets them back.
VkImageLayout LayoutOf(VkFormat format) {
    return HoldsColour(format) ? VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL
                               : VK_IMAGE_LAYOUT_DEPTH_STENCIL_ATTACHMENT_OPTIMAL;
}

VkImageUsageFlags UsageOf(const XrSwapchainCreateInfo& info, bool is_colour) {
    constexpr struct {
        XrSwapchainUsageFlags asked;
        VkImageUsageFlags given;
    } kRows[] = {
        {XR_SWAPCHAIN_USAGE_COLOR_ATTACHMENT_BIT, VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT},
        {XR_SWAPCHAIN_USAGE_DEPTH_STENCIL_ATTACHMENT_BIT, VK_IMAGE_USAGE_DEPTH_STENCIL_ATTACHMENT_BIT},
        {XR_SWAPCHAIN_USAGE_UNORDERED_ACCESS_BIT, VK_IMAGE_USAGE_STORAGE_BIT},
        {XR_SWAPCHAIN_USAGE_TRANSFER_SRC_BIT, VK_IMAGE_USAGE_TRANSFER_SRC_BIT},
        {XR_SWAPCHAIN_USAGE_TRANSFER_DST_BIT, VK_IMAGE_USAGE_TRANSFER_DST_BIT},
        {XR_SWAPCHAIN_USAGE_SAMPLED_BIT, VK_IMAGE_USAGE_SAMPLED_BIT},
    };
    // The layout that images are handed out in is one of attachments, and colour is read.
    VkImageUsageFlags usage = is_colour ? VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT
                                        : VK_IMAGE_USAGE_DEPTH_STENCIL_ATTACHMENT_BIT;
    for (const auto& row : kRows) {
        if ((info.usageFlags & row.asked) != 0) usage |= row.given;
    }
    return usage;
}

VkImageCreateInfo ImageInfoFor(const XrSwapchainCreateInfo& info) {
    VkImageCreateInfo image = {};
    image.sType = VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO;
    if ((info.usageFlags & XR_SWAPCHAIN_USAGE_MUTABLE_FORMAT_BIT) != 0)
        image.flags |= VK_IMAGE_CREATE_MUTABLE_FORMAT_BIT;
    if (info.faceCount == 6) image.flags |= VK_IMAGE_CREATE_CUBE_COMPATIBLE_BIT;
    image.imageType = VK_IMAGE_TYPE_2D;
    image.format = static_cast<VkFormat>(info.format);
    image.extent = {info.width, info.height, 1};
    image.mipLevels = info.mipCount;
    image.arrayLayers = info.arraySize * info.faceCount;
    image.samples = static_cast<VkSampleCountFlagBits>(info.sampleCount);
    image.usage = UsageOf(info, HoldsColour(image.format));
    return image;
}

// What Vulkan forbids of any device, whose limits say nothing of it.
bool IsAllowed(const XrSwapchainCreateInfo& info) {
    const auto longest = static_cast<std::uint32_t>(std::bit_width(std::max(info.width, info.height)));
    const bool is_cube = info.faceCount == 6;
    return std::has_single_bit(info.sampleCount) && info.mipCount <= longest &&
           (info.sampleCount == 1 || (info.mipCount == 1 && !is_cube)) && (!is_cube || info.width == info.height) &&
           info.arraySize <= std::numeric_limits<std::uint32_t>::max() / info.faceCount;
}

class VulkanImages : public ImageSet {
 public:
    VulkanImages(std::shared_ptr<VulkanQueue> queue, std::shared_ptr<VulkanReader> reader,
                 const XrSwapchainCreateInfo& info, std::uint32_t count)
        : queue_(std::move(queue)), reader_(std::move(reader)), info_(ImageInfoFor(info)) {
        if (!IsAllowed(info)) Refuse(XR_ERROR_FEATURE_UNSUPPORTED);
        CheckSupport();
        try {
            for (std::uint32_t i = 0; i < count; ++i) Add();
        } catch (...) {
            Free();
            throw;
        }
    }
    ~VulkanImages() override { Free(); }

    void Write(std::uint32_t index, XrSwapchainImageBaseHeader* records) const override {
        auto& record = reinterpret_cast<XrSwapchainImageVulkanKHR*>(records)[index];
        RequireType(&record, XR_TYPE_SWAPCHAIN_IMAGE_VULKAN_KHR);
        record.image = images_[index].image;
    }

    void Prepare() override {
        queue_->Run([&](VkCommandBuffer commands) {
            for (const VulkanObject& image : images_) {
                ChangeLayout(queue_->vk, commands, image.image, AspectsOf(info_.format), VK_IMAGE_LAYOUT_UNDEFINED,
                             LayoutOf(info_.format));
            }
        });
    }

    RawImage Read(std::uint32_t index, std::uint32_t layer) override {
        return reader_->Read({images_[index].image, info_.format, info_.extent.width, info_.extent.height, layer,
                              info_.samples, LayoutOf(info_.format)});
    }

 private:
    void CheckSupport() const {
        VkImageFormatProperties most;
        const VkResult result = queue_->of_instance.GetPhysicalDeviceImageFormatProperties(
            queue_->physical_device, info_.format, info_.imageType, info_.tiling, info_.usage, info_.flags, &most);
        if (result == VK_ERROR_FORMAT_NOT_SUPPORTED) Refuse(XR_ERROR_FEATURE_UNSUPPORTED);
        CheckVulkan(result);
        const bool fits = info_.extent.width <= most.maxExtent.width && info_.extent.height <= most.maxExtent.height &&
                          info_.mipLevels <= most.maxMipLevels && info_.arrayLayers <= most.maxArrayLayers &&
                          (info_.samples & most.sampleCounts) == info_.samples;
        if (!fits) Refuse(XR_ERROR_FEATURE_UNSUPPORTED);
    }

    void Add() {
        const VulkanDeviceFunctions& vk = queue_->vk;
        VulkanObject& image = images_.emplace_back();
        CheckVulkan(vk.CreateImage(queue_->device, &info_, nullptr, &image.image));
        VkMemoryRequirements requirements;
        vk.GetImageMemoryRequirements(queue_->device, image.image, &requirements);
        image.memory = queue_->Allocate(requirements, 0, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT);
        CheckVulkan(vk.BindImageMemory(queue_->device, image.image, image.memory, 0));
    }

    void Free() {
        for (const VulkanObject& image : images_) queue_->Free(image);
    }

    const std::shared_ptr<VulkanQueue> queue_;
    const std::shared_ptr<VulkanReader> reader_;
    const VkImageCreateInfo info_;
    std::vector<VulkanObject> images_;
};

class VulkanDevice : public GraphicsDevice {
 public:
    VulkanDevice(PFN_vkGetInstanceProcAddr lookup, const XrGraphicsBindingVulkanKHR& binding)
        : queue_(std::make_shared<VulkanQueue>(lookup, binding)), reader_(std::make_shared<VulkanReader>(queue_)) {
        for (const VkFormat format : kFormats) {
            const VkFormatFeatureFlags needed =
                HoldsColour(format) ? VK_FORMAT_FEATURE_COLOR_ATTACHMENT_BIT | VK_FORMAT_FEATURE_TRANSFER_SRC_BIT
                                    : VK_FORMAT_FEATURE_DEPTH_STENCIL_ATTACHMENT_BIT;
            VkFormatProperties properties;
            queue_->of_instance.GetPhysicalDeviceFormatProperties(queue_->physical_device, format, &properties);
            if ((properties.optimalTilingFeatures & needed) == needed) formats_.push_back(format);
        }
    }

    const std::vector<std::int64_t>& Formats() const override { return formats_; }
    bool IsColour(std::int64_t format) const override { return HoldsColour(static_cast<VkFormat>(format)); }
    std::unique_ptr<ImageSet> CreateImages(const XrSwapchainCreateInfo& info, std::uint32_t count) override {
        return std::make_unique<VulkanImages>(queue_, reader_, info, count);
    }

 private:
    const std::shared_ptr<VulkanQueue> queue_;
    const std::shared_ptr<VulkanReader> reader_;
    std::vector<std::int64_t> formats_;
};

}  // namespace

std::unique_ptr<GraphicsDevice> MakeVulkanDevice(PFN_vkGetInstanceProcAddr lookup,
                                                 const XrGraphicsBindingVulkanKHR& binding) {
    return std::make_unique<VulkanDevice>(lookup, binding);
}

}  // namespace simulator
