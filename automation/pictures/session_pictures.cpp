#include "automation/pictures/session_pictures.h"

#include <algorithm>
#include <utility>

#include "simulator/refusal.h"

namespace automation {
namespace {

using orvanic_xr::SimulatorCompositorCaptureInfo;

// A picture is looked at, and sent over a network: more than this tells nobody more.
constexpr std::int32_t kLongestEdge = 2048;

// For a picture in which there is nothing to see.
constexpr simulator::EyeView kAnywhere = {{{0, 0, 0, 1}, {0, 0, 0}}, {-0.8f, 0.8f, 0.8f, -0.8f}};

XrExtent2Di SizeOfPicture(const XrExtent2Di& recommended) {
    const auto [width, height] = recommended;
    if (width <= 0 || height <= 0) simulator::Refuse(XR_ERROR_RUNTIME_FAILURE, "the runtime recommends no size");
    const std::int64_t longest = std::max(width, height);
    if (longest <= kLongestEdge) return recommended;
    const auto scaled = [&](std::int64_t edge) {
        return static_cast<std::int32_t>(std::max<std::int64_t>(edge * kLongestEdge / longest, 1));
    };
    return {scaled(width), scaled(height)};
}

// Nothing where nobody knows from where to look.
std::optional<simulator::EyeView> EyeOf(const PickedLayers& picked, std::size_t eye,
                                        const std::optional<EyeViews>& eyes) {
    if (eyes) return (*eyes)[eye];
    const auto projection =
        std::ranges::find(picked.layers, simulator::LayerShape::kProjection, &simulator::ComposedLayer::shape);
    if (projection == picked.layers.end()) return std::nullopt;
    return simulator::EyeView{projection->pose, projection->fov};
}

// Black would say that the application shows nothing.
XrResult FailureOf(const PickedLayers& picked, bool has_eye) {
    if (picked.layers.empty()) return picked.failure;
    return has_eye ? XR_SUCCESS : XR_ERROR_RUNTIME_FAILURE;
}

}  // namespace

SessionPictures::SessionPictures(std::unique_ptr<simulator::ForeignBinding> binding,
                                 PFN_xrEnumerateSwapchainImages enumerate, Notes::Log log)
    : notes_(log), log_(log), reader_(std::move(binding), enumerate, notes_), copies_(reader_) {}

template <class Work>
XrResult SessionPictures::Guarded(Work work) noexcept {
    return simulator::WithoutThrowing(std::move(work), log_);
}

std::optional<XrSwapchainCreateInfo> SessionPictures::Widened(const XrSwapchainCreateInfo& info) const noexcept {
    const XrSwapchainUsageFlags usage = reader_.UsageToRead();
    if (!reader_.KnowsHowTo(info) || (info.usageFlags & usage) == usage) return std::nullopt;
    XrSwapchainCreateInfo widened = info;
    widened.usageFlags |= usage;
    return widened;
}

void SessionPictures::AddSwapchain(XrSwapchain swapchain, const XrSwapchainCreateInfo& info) noexcept {
    Guarded([&] {
        copies_.Add(swapchain, info);
        return XR_SUCCESS;
    });
}

void SessionPictures::RemoveSwapchain(XrSwapchain swapchain) noexcept {
    Guarded([&] {
        copies_.Remove(swapchain);
        return XR_SUCCESS;
    });
}

void SessionPictures::Acquired(XrSwapchain swapchain, std::uint32_t index) noexcept {
    Guarded([&] {
        copies_.Acquired(swapchain, index);
        return XR_SUCCESS;
    });
}

void SessionPictures::AfterWait(XrSwapchain swapchain, XrResult result) noexcept {
    // One that timed out has not failed, and the image is not there yet.
    if (result != XR_SUCCESS) return;
    Guarded([&] {
        copies_.Waited(swapchain);
        return XR_SUCCESS;
    });
}

void SessionPictures::BeforeRelease(XrSwapchain swapchain) noexcept {
    const bool is_asked = IsAsked();
    if (!is_asked && !copies_.AwaitsStatic()) return;
    Guarded([&] {
        copies_.Copy(swapchain, is_asked);
        return XR_SUCCESS;
    });
}

void SessionPictures::AfterRelease(XrSwapchain swapchain, XrResult result) noexcept {
    Guarded([&] {
        copies_.Settle(swapchain, XR_SUCCEEDED(result));
        return XR_SUCCESS;
    });
}

EndingFrame SessionPictures::BeforeEnd(const XrFrameEndInfo& info, const SpaceLookup& locate,
                                       const std::optional<EyeViews>& eyes) noexcept {
    EndingFrame ending;
    if (!IsAsked()) return ending;
    const XrResult result = Guarded([&] {
        const auto due = requests_.Due();
        ending.parts.reserve(due.size());
        for (const auto& request : due) ending.parts.push_back({request, nullptr, XR_SUCCESS});
        Fill(ending.parts, info, locate, eyes);
        return XR_SUCCESS;
    });
    if (XR_SUCCEEDED(result)) return ending;
    for (auto& part : ending.parts) part.failure = result;
    return ending;
}

// Leaves those empty that wait for a later frame.
void SessionPictures::Fill(std::vector<EndingFrame::Part>& parts, const XrFrameEndInfo& info, const SpaceLookup& locate,
                           const std::optional<EyeViews>& eyes) {
    for (const std::size_t eye : {0u, 1u}) {
        const auto is_asked = [&](const auto& part) { return part.request->eye == eye; };
        if (std::ranges::none_of(parts, is_asked)) continue;
        PickedLayers picked = PickLayers(info, eye, locate, copies_, notes_);
        const bool may_come = picked.may_come;
        const auto seen_from = EyeOf(picked, eye, eyes);
        const XrResult failure = FailureOf(picked, seen_from.has_value());
        const auto frame =
            std::make_shared<ShownFrame>(ShownFrame{seen_from.value_or(kAnywhere), std::move(picked.layers)});
        for (auto& part : parts) {
            if (!is_asked(part) || (may_come && FrameRequests::IsPatient(*part.request))) continue;
            if (may_come) {
                notes_.Once(Note::kNotReleased,
                            "a layer is left out of pictures, for its swapchain has released no image since one was "
                            "asked for");
            }
            part.failure = failure;
            if (XR_SUCCEEDED(failure)) part.frame = frame;
        }
    }
}

void SessionPictures::AfterEnd(const EndingFrame& ending, XrResult result) noexcept {
    if (XR_FAILED(result)) return;
    for (const auto& part : ending.parts) {
        if (part.frame || XR_FAILED(part.failure)) requests_.Settle(*part.request, part.frame, part.failure);
    }
}

XrResult SessionPictures::Start(std::uint32_t eyes, const XrExtent2Di& size) noexcept {
    return Guarded([&] {
        const std::lock_guard lock(mutex_);
        auto started = rules_;
        started.Start(eyes);
        // It stays: the buffer of a call that runs is of this size.
        if (!size_) size_ = SizeOfPicture(size);
        rules_ = started;
        return XR_SUCCESS;
    });
}

XrResult SessionPictures::Stop() noexcept {
    return Guarded([&] {
        const std::lock_guard lock(mutex_);
        rules_.Stop();
        return XR_SUCCESS;
    });
}

XrResult SessionPictures::Capture(SimulatorCompositorCaptureInfo* info) noexcept {
    return Guarded([&] {
        simulator::CaptureRules::Check(info);
        std::unique_lock lock(mutex_);
        const std::size_t eye = rules_.Take(*info);
        const auto width = static_cast<std::uint32_t>(size_->width);
        const auto height = static_cast<std::uint32_t>(size_->height);
        lock.unlock();
        *info->width_output = width;
        *info->height_output = height;
        if (!info->pixels) return XR_SUCCESS;
        const auto frame = requests_.Await(eye);
        // On purpose in every blend mode: what the real world shows there is not known.
        simulator::Compose(frame->layers, frame->eye, XR_ENVIRONMENT_BLEND_MODE_OPAQUE, width, height, info->pixels);
        return XR_SUCCESS;
    });
}

void SessionPictures::EndSession() noexcept {
    requests_.Abandon(XR_ERROR_SESSION_NOT_RUNNING, false);
    const std::lock_guard lock(mutex_);
    rules_ = {};
}

void SessionPictures::DestroySession() noexcept {
    requests_.Abandon(XR_ERROR_HANDLE_INVALID, true);
    reader_.Close();
}

}  // namespace automation
