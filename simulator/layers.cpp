#include "simulator/layers.h"

#include <cmath>
#include <utility>

#include "simulator/extensions.h"
#include "simulator/instance.h"
#include "simulator/renderer/layer_description.h"
#include "simulator/runtime.h"
#include "simulator/session.h"
#include "simulator/spaces.h"
#include "simulator/swapchains.h"

namespace simulator {
namespace {

constexpr XrCompositionLayerFlags kKnownFlags = XR_COMPOSITION_LAYER_CORRECT_CHROMATIC_ABERRATION_BIT |
                                                XR_COMPOSITION_LAYER_BLEND_TEXTURE_SOURCE_ALPHA_BIT |
                                                XR_COMPOSITION_LAYER_UNPREMULTIPLIED_ALPHA_BIT;

template <class Record>
const Record& As(const XrCompositionLayerBaseHeader& header) {
    return reinterpret_cast<const Record&>(header);
}

void CheckSubImage(const Runtime& runtime, const std::shared_ptr<Session>& session, const XrSwapchainSubImage& image) {
    const auto swapchain = runtime.Get(image.swapchain);
    Require(swapchain->session == session);
    if (!swapchain->released) Refuse(XR_ERROR_LAYER_INVALID);
    Require(image.imageArrayIndex < swapchain->info.arraySize && swapchain->info.faceCount == 1);
    const auto& [offset, extent] = image.imageRect;
    const bool is_inside = offset.x >= 0 && offset.y >= 0 && extent.width > 0 && extent.height > 0 &&
                           std::int64_t{offset.x} + extent.width <= swapchain->info.width &&
                           std::int64_t{offset.y} + extent.height <= swapchain->info.height;
    if (!is_inside) Refuse(XR_ERROR_SWAPCHAIN_RECT_INVALID);
}

// Depth is taken and not used: a picture shows the layers as they lie over each other.
void CheckDepth(const Runtime& runtime, const std::shared_ptr<Session>& session, const void* chain) {
    if (!session->instance->HasExtension(kDepthLayer)) return;
    for (auto* link = static_cast<const XrBaseInStructure*>(chain); link; link = link->next) {
        if (link->type != XR_TYPE_COMPOSITION_LAYER_DEPTH_INFO_KHR) continue;
        const auto& depth = *reinterpret_cast<const XrCompositionLayerDepthInfoKHR*>(link);
        CheckSubImage(runtime, session, depth.subImage);
        Require(depth.minDepth >= 0.0f && depth.minDepth < depth.maxDepth && depth.maxDepth <= 1.0f);
        Require(depth.nearZ > 0.0f && depth.farZ > 0.0f && depth.nearZ != depth.farZ);
    }
}

void CheckProjection(const Runtime& runtime, const std::shared_ptr<Session>& session,
                     const XrCompositionLayerProjection& layer) {
    Require(layer.viewCount == 2 && layer.views);
    for (std::uint32_t i = 0; i < layer.viewCount; ++i) {
        const XrCompositionLayerProjectionView& view = layer.views[i];
        RequireType(&view, XR_TYPE_COMPOSITION_LAYER_PROJECTION_VIEW);
        CheckedPose(view.pose);
        CheckSubImage(runtime, session, view.subImage);
        CheckDepth(runtime, session, view.next);
    }
}

void CheckVisibility(XrEyeVisibility visibility) {
    Require(visibility == XR_EYE_VISIBILITY_BOTH || visibility == XR_EYE_VISIBILITY_LEFT ||
            visibility == XR_EYE_VISIBILITY_RIGHT);
}

// What stands in the world: a quad, a cylinder, or an equirect.
template <class Surface>
void CheckSurface(const Runtime& runtime, const std::shared_ptr<Session>& session, const Surface& layer) {
    CheckVisibility(layer.eyeVisibility);
    CheckedPose(layer.pose);
    CheckSubImage(runtime, session, layer.subImage);
}

// Angles are written down in more digits than a float has.
constexpr float kHalfTurn = 3.1416f;

void CheckShape(const XrCompositionLayerCylinderKHR& layer) {
    Require(layer.radius >= 0.0f && layer.aspectRatio > 0.0f);
    Require(layer.centralAngle >= 0.0f && layer.centralAngle <= 2 * kHalfTurn);
}

void CheckShape(const XrCompositionLayerEquirect2KHR& layer) {
    Require(layer.radius >= 0.0f);
    Require(layer.centralHorizontalAngle >= 0.0f && layer.centralHorizontalAngle <= 2 * kHalfTurn);
    Require(std::fabs(layer.upperVerticalAngle) <= kHalfTurn / 2 &&
            std::fabs(layer.lowerVerticalAngle) <= kHalfTurn / 2);
}

void CheckLayer(const Runtime& runtime, const std::shared_ptr<Session>& session,
                const XrCompositionLayerBaseHeader& header) {
    switch (header.type) {
        case XR_TYPE_COMPOSITION_LAYER_PROJECTION:
            return CheckProjection(runtime, session, As<XrCompositionLayerProjection>(header));
        case XR_TYPE_COMPOSITION_LAYER_QUAD:
            return CheckSurface(runtime, session, As<XrCompositionLayerQuad>(header));
        case XR_TYPE_COMPOSITION_LAYER_CYLINDER_KHR:
            CheckSurface(runtime, session, As<XrCompositionLayerCylinderKHR>(header));
            return CheckShape(As<XrCompositionLayerCylinderKHR>(header));
        default:
            CheckSurface(runtime, session, As<XrCompositionLayerEquirect2KHR>(header));
            return CheckShape(As<XrCompositionLayerEquirect2KHR>(header));
    }
}

bool IsKnown(const Instance& instance, XrStructureType layer) {
    switch (layer) {
        case XR_TYPE_COMPOSITION_LAYER_PROJECTION:
        case XR_TYPE_COMPOSITION_LAYER_QUAD:
            return true;
        case XR_TYPE_COMPOSITION_LAYER_CYLINDER_KHR:
            return instance.HasExtension(kCylinderLayer);
        case XR_TYPE_COMPOSITION_LAYER_EQUIRECT2_KHR:
            return instance.HasExtension(kEquirect2Layer);
        default:
            return false;
    }
}

}  // namespace

void CheckLayers(const Runtime& runtime, const std::shared_ptr<Session>& session, const XrFrameEndInfo& info) {
    for (std::uint32_t i = 0; i < info.layerCount; ++i) {
        const XrCompositionLayerBaseHeader* header = info.layers[i];
        if (!header || !IsKnown(*session->instance, header->type)) Refuse(XR_ERROR_LAYER_INVALID);
        Require(runtime.Get(header->space)->session == session && (header->layerFlags & ~kKnownFlags) == 0);
        CheckLayer(runtime, session, *header);
    }
}

std::vector<PlannedLayer> LayersFor(const Runtime& runtime, const XrFrameEndInfo& info, std::size_t eye) {
    std::vector<PlannedLayer> layers;
    for (std::uint32_t i = 0; i < info.layerCount; ++i) {
        const XrCompositionLayerBaseHeader& header = *info.layers[i];
        const auto space = WorldPose(*runtime.Get(header.space), info.displayTime);
        if (!space) continue;
        auto described = DescribeLayer(header, *space, eye);
        if (!described) continue;
        const auto swapchain = runtime.Get(described->image.swapchain);
        // Depth may stand where colour is meant; there is nothing to see of it.
        if (!swapchain->session->graphics->IsColour(swapchain->info.format)) continue;
        layers.push_back(
            {std::move(described->layer), swapchain->images, *swapchain->released, described->image.imageArrayIndex});
    }
    return layers;
}

}  // namespace simulator
