// Copies of the images of the application's swapchains, made with its own device or context.
#pragma once

#include <openxr/openxr.h>

#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "automation/pictures/notes.h"
#include "simulator/graphics/foreign_images.h"

namespace automation {

struct ImageCopy {
    // The layers of an array of two have a copy each, further ones none.
    std::vector<std::shared_ptr<const simulator::RawImage>> layers;
    // Why there is none.
    XrResult failure = XR_SUCCESS;
};

class ImageReader {
 public:
    // `binding` may be null: then nothing can be read.
    ImageReader(std::unique_ptr<simulator::ForeignBinding> binding, PFN_xrEnumerateSwapchainImages enumerate,
                Notes& notes)
        : binding_(std::move(binding)), enumerate_(enumerate), notes_(notes) {}

    // Whether images of such a swapchain can be read, but for its usage.
    bool KnowsHowTo(const XrSwapchainCreateInfo& info) const;
    XrSwapchainUsageFlags UsageToRead() const { return binding_ ? binding_->UsageToRead() : 0; }

    // In xrReleaseSwapchainImage. The device is made by the first. One thread at a time, others wait.
    ImageCopy Read(XrSwapchain swapchain, const XrSwapchainCreateInfo& info, std::uint32_t index) noexcept;
    void Forget(XrSwapchain swapchain);
    // In xrDestroySession. Afterwards nothing is read.
    void Close();

 private:
    // With mutex_ locked. Throws a Refusal.
    void ReadInto(ImageCopy& copy, XrSwapchain swapchain, const XrSwapchainCreateInfo& info, std::uint32_t index);

    const std::unique_ptr<simulator::ForeignBinding> binding_;
    const PFN_xrEnumerateSwapchainImages enumerate_;
    Notes& notes_;

    // Guards all below, and the device. Locked while it is waited for.
    std::mutex mutex_;
    bool closed_ = false;
    std::unique_ptr<simulator::ForeignDevice> device_;
    std::unordered_map<XrSwapchain, std::unique_ptr<simulator::ForeignImages>> images_;
};

}  // namespace automation
