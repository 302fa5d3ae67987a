// Reads an image of Vulkan into plain memory: any image of this device that may be a source of transfers, whoever made
// it.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "simulator/graphics/raw_image.h"
#include "simulator/graphics/vulkan_queue.h"

namespace simulator {

struct VulkanImageView {
    VkImage image;
    // One of colour, see PixelsOf.
    VkFormat format;
    // Of the first mip level.
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t layer;
    VkSampleCountFlagBits samples;
    // In which the image is, and is again afterwards.
    VkImageLayout layout;
};

// What a format holds: false for one that is not read.
bool PixelsOf(VkFormat format, PixelKind& kind, bool& is_srgb);

class VulkanReader {
 public:
    explicit VulkanReader(std::shared_ptr<VulkanQueue> queue) : queue_(std::move(queue)) {}
    VulkanReader(const VulkanReader&) = delete;
    VulkanReader& operator=(const VulkanReader&) = delete;
    ~VulkanReader() { queue_->Free(buffer_); }

    // Any thread.
    RawImage Read(const VulkanImageView& view);

 private:
    // With mutex_ locked. The buffer into which is copied is kept for the next time.
    void Reserve(VkDeviceSize size);

    const std::shared_ptr<VulkanQueue> queue_;
    // Guards all below: frames may end while another one is still read.
    std::mutex mutex_;
    VulkanObject buffer_;
    const std::uint8_t* mapped_ = nullptr;
    VkDeviceSize size_ = 0;
};

}  // namespace simulator
