// The layers of a frame that was made for a simulated head, as they have to be submitted for the real one: a worn
// headset would show them where its wearer does not look. What is fixed to the view stays as it is.
#pragma once

#include <openxr/openxr.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace automation {

class SubmittedLayers {
 public:
    // Where a layer's space is for the frame, in world coordinates. Nothing for one that is not to be changed: a space
    // that is fixed to the view, or is nowhere.
    using SpaceLookup = std::function<std::optional<XrPosef>(XrSpace space)>;

    // `info` has to outlive this. `move` takes world coordinates to where the real head sees what the simulated one
    // would; `world` is the space of these coordinates.
    SubmittedLayers(const XrFrameEndInfo& info, const SpaceLookup& lookup, const XrPosef& move, XrSpace world);
    // A copy would point to the layers of the first.
    SubmittedLayers(SubmittedLayers&&) = default;
    SubmittedLayers& operator=(SubmittedLayers&&) = default;

    const XrFrameEndInfo& info() const { return info_; }

 private:
    XrFrameEndInfo info_;
    std::vector<const XrCompositionLayerBaseHeader*> layers_;
    // Copies with other poses, which have to stay where they are.
    std::vector<std::shared_ptr<void>> copies_;
};

}  // namespace automation
