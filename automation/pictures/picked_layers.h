// What one eye is to see of the layers of a frame, with the images that there are of it.
#pragma once

#include <openxr/openxr.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "automation/pictures/notes.h"
#include "automation/pictures/swapchain_copies.h"
#include "simulator/renderer/composition.h"

namespace automation {

// Where a space is for the frame, in world coordinates. Nothing for one that is nowhere.
using SpaceLookup = std::function<std::optional<XrPosef>(XrSpace space)>;

struct PickedLayers {
    std::vector<simulator::ComposedLayer> layers;
    // Not among them, the last of which lacked its image for this. XR_SUCCESS where none is missing.
    XrResult failure = XR_SUCCESS;
    // A later frame may show one that is missing.
    bool may_come = false;
};

// Layers in spaces that are nowhere are not missing. Notes those that are, but for what may come.
PickedLayers PickLayers(const XrFrameEndInfo& info, std::size_t eye, const SpaceLookup& locate,
                        const SwapchainCopies& copies, Notes& notes);

}  // namespace automation
