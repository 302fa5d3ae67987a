#include "automation/pictures/picked_layers.h"

#include <string>
#include <utility>

#include "simulator/renderer/layer_description.h"

namespace automation {
namespace {

void NoteLeftOut(const ShownImage& shown, Notes& notes) {
    if (shown.may_come) return;
    notes.Once(Note::kUnreadable,
               "a layer is left out of pictures, for its image can't be read, result " + std::to_string(shown.failure));
}

void AddLayer(PickedLayers& picked, const XrCompositionLayerBaseHeader& header, std::size_t eye,
              const SpaceLookup& locate, const SwapchainCopies& copies, Notes& notes) {
    if (!simulator::IsComposed(header.type)) {
        picked.failure = XR_ERROR_FEATURE_UNSUPPORTED;
        notes.Once(Note::kUnknownType, "layers of type " + std::to_string(header.type) + " are left out of pictures");
        return;
    }
    const auto space = locate(header.space);
    auto described = space ? simulator::DescribeLayer(header, *space, eye) : std::nullopt;
    if (!described) return;
    const ShownImage shown = copies.Find(described->image);
    if (shown.image) {
        described->layer.image = shown.image;
        picked.layers.push_back(std::move(described->layer));
        return;
    }
    picked.failure = shown.failure;
    picked.may_come = picked.may_come || shown.may_come;
    NoteLeftOut(shown, notes);
}

}  // namespace

PickedLayers PickLayers(const XrFrameEndInfo& info, std::size_t eye, const SpaceLookup& locate,
                        const SwapchainCopies& copies, Notes& notes) {
    PickedLayers picked;
    for (std::uint32_t i = 0; info.layers && i < info.layerCount; ++i) {
        if (info.layers[i]) AddLayer(picked, *info.layers[i], eye, locate, copies, notes);
    }
    return picked;
}

}  // namespace automation
