#include "automation/submitted_layers.h"

#include "xr/pose_math.h"

namespace automation {
namespace {

using orvanic_xr::Compose;

// A layer that stands in the world with one pose.
template <class Layer>
std::shared_ptr<void> MovedSurface(const XrCompositionLayerBaseHeader& header, const XrPosef& to, XrSpace world) {
    auto copy = std::make_shared<Layer>(reinterpret_cast<const Layer&>(header));
    copy->space = world;
    copy->pose = Compose(to, copy->pose);
    return copy;
}

struct MovedProjection {
    XrCompositionLayerProjection layer;
    std::vector<XrCompositionLayerProjectionView> views;
};

std::shared_ptr<void> MovedProjectionOf(const XrCompositionLayerBaseHeader& header, const XrPosef& to, XrSpace world) {
    const auto& layer = reinterpret_cast<const XrCompositionLayerProjection&>(header);
    auto copy = std::make_shared<MovedProjection>();
    copy->layer = layer;
    copy->layer.space = world;
    if (layer.views) copy->views.assign(layer.views, layer.views + layer.viewCount);
    for (auto& view : copy->views) view.pose = Compose(to, view.pose);
    if (layer.views) copy->layer.views = copy->views.data();
    // The copy begins with the layer.
    return copy;
}

// Infinitely far away: it turns, and does not move.
std::shared_ptr<void> MovedCube(const XrCompositionLayerBaseHeader& header, const XrPosef& to, XrSpace world) {
    auto copy = std::make_shared<XrCompositionLayerCubeKHR>(reinterpret_cast<const XrCompositionLayerCubeKHR&>(header));
    copy->space = world;
    copy->orientation = orvanic_xr::Multiply(to.orientation, copy->orientation);
    return copy;
}

std::shared_ptr<void> MovedLayer(const XrCompositionLayerBaseHeader& layer, const XrPosef& to, XrSpace world) {
    switch (layer.type) {
        case XR_TYPE_COMPOSITION_LAYER_PROJECTION:
            return MovedProjectionOf(layer, to, world);
        case XR_TYPE_COMPOSITION_LAYER_QUAD:
            return MovedSurface<XrCompositionLayerQuad>(layer, to, world);
        case XR_TYPE_COMPOSITION_LAYER_CYLINDER_KHR:
            return MovedSurface<XrCompositionLayerCylinderKHR>(layer, to, world);
        case XR_TYPE_COMPOSITION_LAYER_EQUIRECT_KHR:
            return MovedSurface<XrCompositionLayerEquirectKHR>(layer, to, world);
        case XR_TYPE_COMPOSITION_LAYER_EQUIRECT2_KHR:
            return MovedSurface<XrCompositionLayerEquirect2KHR>(layer, to, world);
        case XR_TYPE_COMPOSITION_LAYER_CUBE_KHR:
            return MovedCube(layer, to, world);
        default:
            // Of a kind that nobody here knows: passthrough and the like.
            return nullptr;
    }
}

}  // namespace

SubmittedLayers::SubmittedLayers(const XrFrameEndInfo& info, const SpaceLookup& lookup, const XrPosef& move,
                                 XrSpace world)
    : info_(info) {
    layers_.reserve(info.layerCount);
    for (std::uint32_t i = 0; info.layers && i < info.layerCount; ++i) {
        const XrCompositionLayerBaseHeader* layer = info.layers[i];
        const auto space = layer ? lookup(layer->space) : std::nullopt;
        auto moved = space ? MovedLayer(*layer, Compose(move, *space), world) : nullptr;
        if (moved) {
            layer = static_cast<const XrCompositionLayerBaseHeader*>(moved.get());
            copies_.push_back(std::move(moved));
        }
        layers_.push_back(layer);
    }
    if (info.layers) info_.layers = layers_.data();
}

}  // namespace automation
