#include "simulator/layers.h"

#include "simulator/extensions.h"
#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/session.h"
#include "simulator/spaces.h"
#include "simulator/swapchains.h"
#include "xr/pose_math.h"

namespace simulator {
namespace {

template <class Record>
const Record& As(const XrCompositionLayerBaseHeader& header) {
    return reinterpret_cast<const Record&>(header);
}

void CheckSubImage(const Runtime& runtime, const std::shared_ptr<Session>& session, const XrSwapchainSubImage& image) {
    const auto swapchain = runtime.Get(image.swapchain);
    Require(swapchain->session == session);
    if (!swapchain->released) Refuse(XR_ERROR_LAYER_INVALID);
    Require(image.imageArrayIndex < swapchain->info.arraySize);
    const auto& [offset, extent] = image.imageRect;
    const bool is_inside = offset.x >= 0 && offset.y >= 0 && extent.width > 0 && extent.height > 0 &&
                           std::int64_t{offset.x} + extent.width <= swapchain->info.width &&
                           std::int64_t{offset.y} + extent.height <= swapchain->info.height;
    if (!is_inside) Refuse(XR_ERROR_SWAPCHAIN_RECT_INVALID);
}

void CheckProjection(const Runtime& runtime, const std::shared_ptr<Session>& session,
                     const XrCompositionLayerProjection& layer) {
    Require(layer.viewCount == 2 && layer.views);
    for (std::uint32_t i = 0; i < layer.viewCount; ++i) {
        const XrCompositionLayerProjectionView& view = layer.views[i];
        RequireType(&view, XR_TYPE_COMPOSITION_LAYER_PROJECTION_VIEW);
        CheckedPose(view.pose);
        CheckSubImage(runtime, session, view.subImage);
    }
}

void CheckVisibility(XrEyeVisibility visibility) {
    Require(visibility == XR_EYE_VISIBILITY_BOTH || visibility == XR_EYE_VISIBILITY_LEFT ||
            visibility == XR_EYE_VISIBILITY_RIGHT);
}

void CheckQuad(const Runtime& runtime, const std::shared_ptr<Session>& session, const XrCompositionLayerQuad& layer) {
    CheckVisibility(layer.eyeVisibility);
    CheckedPose(layer.pose);
    CheckSubImage(runtime, session, layer.subImage);
}

bool IsSeenBy(XrEyeVisibility visibility, std::size_t eye) {
    return visibility == XR_EYE_VISIBILITY_BOTH || (visibility == XR_EYE_VISIBILITY_LEFT) == (eye == 0);
}

PlannedLayer Plan(const Runtime& runtime, const XrSwapchainSubImage& image, const XrPosef& space, const XrPosef& pose) {
    const auto swapchain = runtime.Get(image.swapchain);
    PlannedLayer planned;
    planned.layer.rect = image.imageRect;
    planned.layer.pose = orvanic_xr::Compose(space, CheckedPose(pose));
    planned.images = swapchain->session->graphics->IsColour(swapchain->info.format) ? swapchain->images : nullptr;
    planned.image = *swapchain->released;
    planned.array_layer = image.imageArrayIndex * swapchain->info.faceCount;
    return planned;
}

std::optional<PlannedLayer> PlanFor(const Runtime& runtime, const XrCompositionLayerBaseHeader& header,
                                    const XrPosef& space, std::size_t eye) {
    if (header.type == XR_TYPE_COMPOSITION_LAYER_PROJECTION) {
        const auto& view = As<XrCompositionLayerProjection>(header).views[eye];
        PlannedLayer planned = Plan(runtime, view.subImage, space, view.pose);
        planned.layer.fov = view.fov;
        return planned;
    }
    const auto& quad = As<XrCompositionLayerQuad>(header);
    if (!IsSeenBy(quad.eyeVisibility, eye)) return std::nullopt;
    PlannedLayer planned = Plan(runtime, quad.subImage, space, quad.pose);
    planned.layer.shape = LayerShape::kQuad;
    planned.layer.size = quad.size;
    return planned;
}

}  // namespace

void CheckLayers(const Runtime& runtime, const std::shared_ptr<Session>& session, const XrFrameEndInfo& info) {
    for (std::uint32_t i = 0; i < info.layerCount; ++i) {
        const XrCompositionLayerBaseHeader* header = info.layers[i];
        if (!header) Refuse(XR_ERROR_LAYER_INVALID);
        const bool is_projection = header->type == XR_TYPE_COMPOSITION_LAYER_PROJECTION;
        if (!is_projection && header->type != XR_TYPE_COMPOSITION_LAYER_QUAD) Refuse(XR_ERROR_LAYER_INVALID);
        Require(runtime.Get(header->space)->session == session);
        if (is_projection) {
            CheckProjection(runtime, session, As<XrCompositionLayerProjection>(*header));
        } else {
            CheckQuad(runtime, session, As<XrCompositionLayerQuad>(*header));
        }
    }
}

std::vector<PlannedLayer> LayersFor(const Runtime& runtime, const XrFrameEndInfo& info, std::size_t eye) {
    std::vector<PlannedLayer> layers;
    for (std::uint32_t i = 0; i < info.layerCount; ++i) {
        const XrCompositionLayerBaseHeader& header = *info.layers[i];
        const auto space = WorldPose(*runtime.Get(header.space), info.displayTime);
        if (!space) continue;
        auto planned = PlanFor(runtime, header, *space, eye);
        // Depth may stand where colour is meant; there is nothing to see of it.
        if (!planned || !planned->images) continue;
        planned->layer.has_alpha = (header.layerFlags & XR_COMPOSITION_LAYER_BLEND_TEXTURE_SOURCE_ALPHA_BIT) != 0;
        planned->layer.is_premultiplied = (header.layerFlags & XR_COMPOSITION_LAYER_UNPREMULTIPLIED_ALPHA_BIT) == 0;
        layers.push_back(*std::move(planned));
    }
    return layers;
}

}  // namespace simulator
