#include "automation/pictures/image_reader.h"

#include <algorithm>
#include <string>

#include "simulator/refusal.h"

namespace automation {

bool ImageReader::KnowsHowTo(const XrSwapchainCreateInfo& info) const {
    return binding_ && binding_->CanRead(info.format) && info.faceCount == 1 &&
           (info.createFlags & XR_SWAPCHAIN_CREATE_PROTECTED_CONTENT_BIT) == 0;
}

ImageCopy ImageReader::Read(XrSwapchain swapchain, const XrSwapchainCreateInfo& info, std::uint32_t index) noexcept {
    ImageCopy copy;
    const char* reason = "";
    copy.failure = simulator::WithoutThrowing(
        [&] {
            const std::lock_guard lock(mutex_);
            ReadInto(copy, swapchain, info, index);
            return XR_SUCCESS;
        },
        [&](const char* told) { reason = told; });
    if (XR_SUCCEEDED(copy.failure)) return copy;
    copy.layers.clear();
    const auto note = [&] {
        notes_.Once(Note::kFailed, "an image of the application's can't be read, result " +
                                       std::to_string(copy.failure) + (*reason ? ": " : "") + reason);
        return XR_SUCCESS;
    };
    simulator::WithoutThrowing(note, [](const char*) {});
    return copy;
}

void ImageReader::ReadInto(ImageCopy& copy, XrSwapchain swapchain, const XrSwapchainCreateInfo& info,
                           std::uint32_t index) {
    constexpr std::uint32_t kMostLayers = 2;
    if (closed_ || !binding_) simulator::Refuse(XR_ERROR_SESSION_NOT_RUNNING);
    if (!device_) device_ = binding_->MakeDevice();
    auto& images = images_[swapchain];
    if (!images) images = device_->ImagesOf(swapchain, info, enumerate_);
    for (std::uint32_t layer = 0; layer < std::min(info.arraySize, kMostLayers); ++layer) {
        copy.layers.push_back(std::make_shared<const simulator::RawImage>(images->Read(index, layer)));
    }
}

void ImageReader::Forget(XrSwapchain swapchain) {
    const std::lock_guard lock(mutex_);
    images_.erase(swapchain);
}

void ImageReader::Close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    images_.clear();
    device_.reset();
}

}  // namespace automation
