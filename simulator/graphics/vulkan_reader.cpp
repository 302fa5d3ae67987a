#include "simulator/graphics/vulkan_reader.h"

#include <utility>

#include "simulator/refusal.h"

namespace simulator {
namespace {

// An image with its memory, for as long as one reading takes.
class ScratchImage {
 public:
    ScratchImage(VulkanQueue& queue, VkFormat format, std::uint32_t width, std::uint32_t height) : queue_(queue) {
        VkImageCreateInfo info = {};
        info.sType = VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO;
        info.imageType = VK_IMAGE_TYPE_2D;
        info.format = format;
        info.extent = {width, height, 1};
        info.mipLevels = info.arrayLayers = 1;
        info.samples = VK_SAMPLE_COUNT_1_BIT;
        info.usage = VK_IMAGE_USAGE_TRANSFER_SRC_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT;
        CheckVulkan(queue.vk.CreateImage(queue.device, &info, nullptr, &made_.image));
        VkMemoryRequirements requirements;
        queue.vk.GetImageMemoryRequirements(queue.device, made_.image, &requirements);
        try {
            made_.memory = queue.Allocate(requirements, 0);
        } catch (...) {
            queue.Free(made_);
            throw;
        }
        queue.vk.BindImageMemory(queue.device, made_.image, made_.memory, 0);
    }
    ScratchImage(const ScratchImage&) = delete;
    ScratchImage& operator=(const ScratchImage&) = delete;
    ~ScratchImage() { queue_.Free(made_); }

    VkImage image() const { return made_.image; }

 private:
    VulkanQueue& queue_;
    VulkanObject made_;
};

VkImageSubresourceLayers LayerOf(std::uint32_t layer) {
    return {VK_IMAGE_ASPECT_COLOR_BIT, 0, layer, 1};
}

}  // namespace

bool PixelsOf(VkFormat format, PixelKind& kind, bool& is_srgb) {
    is_srgb = format == VK_FORMAT_R8G8B8A8_SRGB || format == VK_FORMAT_B8G8R8A8_SRGB;
    switch (format) {
        case VK_FORMAT_R8G8B8A8_SRGB:
        case VK_FORMAT_R8G8B8A8_UNORM:
            kind = PixelKind::kRgba8;
            return true;
        case VK_FORMAT_B8G8R8A8_SRGB:
        case VK_FORMAT_B8G8R8A8_UNORM:
            kind = PixelKind::kBgra8;
            return true;
        case VK_FORMAT_R16G16B16A16_SFLOAT:
            kind = PixelKind::kRgba16F;
            return true;
        case VK_FORMAT_R16G16B16A16_UNORM:
            kind = PixelKind::kRgba16;
            return true;
        case VK_FORMAT_A2B10G10R10_UNORM_PACK32:
            kind = PixelKind::kRgb10A2;
            return true;
        default:
            return false;
    }
}

RawImage VulkanReader::Read(const VulkanImageView& view) {
    RawImage raw;
    raw.width = view.width;
    raw.height = view.height;
    if (!PixelsOf(view.format, raw.kind, raw.is_srgb)) Refuse(XR_ERROR_SWAPCHAIN_FORMAT_UNSUPPORTED);
    const std::size_t size = std::size_t{view.width} * view.height * BytesOfPixel(raw.kind);
    const std::lock_guard lock(mutex_);
    Reserve(size);
    const VulkanDeviceFunctions& vk = queue_->vk;
    const VkExtent3D extent = {view.width, view.height, 1};
    std::unique_ptr<ScratchImage> resolved;
    if (view.samples != VK_SAMPLE_COUNT_1_BIT) {
        resolved = std::make_unique<ScratchImage>(*queue_, view.format, view.width, view.height);
    }
    queue_->Run([&](VkCommandBuffer commands) {
        const auto change = [&](VkImage image, VkImageLayout from, VkImageLayout to) {
            ChangeLayout(vk, commands, image, VK_IMAGE_ASPECT_COLOR_BIT, from, to);
        };
        const VkImageLayout source = VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL;
        const VkImageLayout target = VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL;
        VkImage copied = view.image;
        std::uint32_t layer = view.layer;
        change(view.image, view.layout, source);
        if (resolved) {
            const VkImageResolve region = {LayerOf(view.layer), {}, LayerOf(0), {}, extent};
            change(resolved->image(), VK_IMAGE_LAYOUT_UNDEFINED, target);
            vk.CmdResolveImage(commands, view.image, source, resolved->image(), target, 1, &region);
            change(resolved->image(), target, source);
            copied = resolved->image();
            layer = 0;
        }
        const VkBufferImageCopy region = {0, 0, 0, LayerOf(layer), {}, extent};
        vk.CmdCopyImageToBuffer(commands, copied, source, buffer_.buffer, 1, &region);
        change(view.image, source, view.layout);
        VkBufferMemoryBarrier readable = {};
        readable.sType = VK_STRUCTURE_TYPE_BUFFER_MEMORY_BARRIER;
        readable.srcAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT;
        readable.dstAccessMask = VK_ACCESS_HOST_READ_BIT;
        readable.srcQueueFamilyIndex = readable.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
        readable.buffer = buffer_.buffer;
        readable.size = VK_WHOLE_SIZE;
        vk.CmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_HOST_BIT, 0, 0, nullptr, 1,
                              &readable, 0, nullptr);
    });
    raw.bytes.assign(mapped_, mapped_ + size);
    return raw;
}

void VulkanReader::Reserve(VkDeviceSize size) {
    if (size <= size_) return;
    size_ = 0;
    queue_->Free(std::exchange(buffer_, {}));
    const VulkanDeviceFunctions& vk = queue_->vk;
    VkBufferCreateInfo info = {};
    info.sType = VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO;
    info.size = size;
    info.usage = VK_BUFFER_USAGE_TRANSFER_DST_BIT;
    CheckVulkan(vk.CreateBuffer(queue_->device, &info, nullptr, &buffer_.buffer));
    VkMemoryRequirements requirements;
    vk.GetBufferMemoryRequirements(queue_->device, buffer_.buffer, &requirements);
    buffer_.memory =
        queue_->Allocate(requirements, VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT,
                         VK_MEMORY_PROPERTY_HOST_CACHED_BIT);
    CheckVulkan(vk.BindBufferMemory(queue_->device, buffer_.buffer, buffer_.memory, 0));
    void* mapped = nullptr;
    CheckVulkan(vk.MapMemory(queue_->device, buffer_.memory, 0, VK_WHOLE_SIZE, 0, &mapped));
    mapped_ = static_cast<const std::uint8_t*>(mapped);
    size_ = size;
}

}  // namespace simulator
