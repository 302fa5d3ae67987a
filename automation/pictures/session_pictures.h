// Pictures of what an application shows on a runtime that gives none: XR_KESTX1_simulator_compositor_output_capture,
// played by an API layer for one session that renders.
//
//   image_reader       copies images with the application's own device
//   swapchain_copies   which images the swapchains show, and their copies
//   frame_requests     who waits for a picture, and for which frame
//   picked_layers      what an eye is to see of a frame
//
// A call on a tool's thread leaves a request and waits. While there is one, whatever the application releases is copied
// right before; a frame that shows everything that was so at the time of the request settles it when it ends. The
// tool's thread then composes the picture. So the graphics device is used by the application's threads alone, where
// OpenXR allows it, and while nobody asks for a picture nothing is read, copied or allocated.
//
// Hooks call what is named after their function, with a live session. Nothing is thrown.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "automation/pictures/frame_requests.h"
#include "automation/pictures/image_reader.h"
#include "automation/pictures/notes.h"
#include "automation/pictures/picked_layers.h"
#include "automation/pictures/swapchain_copies.h"
#include "simulator/graphics/foreign_images.h"
#include "simulator/renderer/capture_rules.h"

namespace automation {

// In world coordinates, left and right.
using EyeViews = std::array<simulator::EyeView, 2>;

// What a frame would settle once the runtime has taken it.
struct EndingFrame {
    struct Part {
        std::shared_ptr<FrameRequest> request;
        std::shared_ptr<const ShownFrame> frame;
        XrResult failure = XR_SUCCESS;
    };
    std::vector<Part> parts;
};

class SessionPictures {
 public:
    // xrCreateSession: makes nothing of a graphics interface. `binding` is null for one that is not known.
    SessionPictures(std::unique_ptr<simulator::ForeignBinding> binding, PFN_xrEnumerateSwapchainImages enumerate,
                    Notes::Log log);
    SessionPictures(const SessionPictures&) = delete;
    SessionPictures& operator=(const SessionPictures&) = delete;
    ~SessionPictures() { DestroySession(); }

    // xrCreateSwapchain, before: what to ask the runtime for instead, so that images can be read. Nothing where the
    // application's own record will do, and where there is nothing to read. The runtime may refuse it.
    std::optional<XrSwapchainCreateInfo> Widened(const XrSwapchainCreateInfo& info) const noexcept;
    // After: by the record that the runtime took.
    void AddSwapchain(XrSwapchain swapchain, const XrSwapchainCreateInfo& info) noexcept;
    // xrDestroySwapchain, before: afterwards the handle may be another's.
    void RemoveSwapchain(XrSwapchain swapchain) noexcept;
    // xrAcquireSwapchainImage, after it succeeded.
    void Acquired(XrSwapchain swapchain, std::uint32_t index) noexcept;
    // xrWaitSwapchainImage, after.
    void AfterWait(XrSwapchain swapchain, XrResult result) noexcept;
    // xrReleaseSwapchainImage, before and after.
    void BeforeRelease(XrSwapchain swapchain) noexcept;
    void AfterRelease(XrSwapchain swapchain, XrResult result) noexcept;

    // xrSyncActions and xrBeginFrame, after they succeeded and before it is fixed what the frame shows of the simulated
    // devices.
    void InputRead() noexcept { requests_.CountSync(); }
    void FrameBegan() noexcept { requests_.CountBegin(); }
    // Whether xrEndFrame has to do what follows.
    bool IsAsked() const noexcept { return requests_.Any(); }
    // xrEndFrame, before: `info` as the application has it. Without `eyes` the picture is seen from where the first
    // projection layer was drawn for; there is none where there is no such layer.
    EndingFrame BeforeEnd(const XrFrameEndInfo& info, const SpaceLookup& locate,
                          const std::optional<EyeViews>& eyes) noexcept;
    // And after.
    void AfterEnd(const EndingFrame& ending, XrResult result) noexcept;

    // The extension's three functions, after handle and running session were checked. `size` is what the runtime
    // recommends for a view; the first one counts, and is made smaller where it is very large.
    XrResult Start(std::uint32_t eyes, const XrExtent2Di& size) noexcept;
    XrResult Stop() noexcept;
    XrResult Capture(orvanic_xr::SimulatorCompositorCaptureInfo* info) noexcept;

    // xrEndSession, after it succeeded: nobody waits any longer, and the capture is no longer started.
    void EndSession() noexcept;
    // xrDestroySession, before. Gives all of the graphics interface back; who still has this can do no harm.
    void DestroySession() noexcept;

 private:
    template <class Work>
    XrResult Guarded(Work work) noexcept;
    void Fill(std::vector<EndingFrame::Part>& parts, const XrFrameEndInfo& info, const SpaceLookup& locate,
              const std::optional<EyeViews>& eyes);

    Notes notes_;
    const Notes::Log log_;
    ImageReader reader_;
    SwapchainCopies copies_;
    FrameRequests requests_;

    // Guards all below.
    std::mutex mutex_;
    simulator::CaptureRules rules_;
    std::optional<XrExtent2Di> size_;
};

}  // namespace automation
