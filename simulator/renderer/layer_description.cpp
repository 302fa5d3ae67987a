#include "simulator/renderer/layer_description.h"

#include <algorithm>

#include "xr/pose_math.h"

namespace simulator {
namespace {

template <class Record>
const Record& As(const XrCompositionLayerBaseHeader& header) {
    return reinterpret_cast<const Record&>(header);
}

bool IsSeenBy(XrEyeVisibility visibility, std::size_t eye) {
    return visibility == XR_EYE_VISIBILITY_BOTH || (visibility == XR_EYE_VISIBILITY_LEFT) == (eye == 0);
}

std::optional<DescribedLayer> Describe(LayerShape shape, const XrSwapchainSubImage& image, const XrPosef& space,
                                       const XrPosef& pose) {
    const auto good = orvanic_xr::GoodPose(pose);
    if (!good) return std::nullopt;
    DescribedLayer described = {{}, image};
    described.layer.shape = shape;
    described.layer.rect = image.imageRect;
    described.layer.pose = orvanic_xr::Compose(space, *good);
    return described;
}

// Of one view, both eyes see that; of more than two, the first ones are those of the eyes.
std::optional<DescribedLayer> DescribeProjection(const XrCompositionLayerProjection& layer, const XrPosef& space,
                                                 std::size_t eye) {
    if (layer.viewCount == 0 || !layer.views) return std::nullopt;
    const XrCompositionLayerProjectionView& view = layer.views[std::min<std::size_t>(eye, layer.viewCount - 1)];
    auto described = Describe(LayerShape::kProjection, view.subImage, space, view.pose);
    if (described) described->layer.fov = view.fov;
    return described;
}

template <class Surface>
std::optional<DescribedLayer> DescribeSurface(const Surface& surface, LayerShape shape, const XrPosef& space,
                                              std::size_t eye) {
    if (!IsSeenBy(surface.eyeVisibility, eye)) return std::nullopt;
    return Describe(shape, surface.subImage, space, surface.pose);
}

std::optional<DescribedLayer> DescribeQuad(const XrCompositionLayerQuad& quad, const XrPosef& space, std::size_t eye) {
    auto described = DescribeSurface(quad, LayerShape::kQuad, space, eye);
    if (described) described->layer.size = quad.size;
    return described;
}

std::optional<DescribedLayer> DescribeCylinder(const XrCompositionLayerCylinderKHR& cylinder, const XrPosef& space,
                                               std::size_t eye) {
    auto described = DescribeSurface(cylinder, LayerShape::kCylinder, space, eye);
    if (!described) return described;
    described->layer.radius = cylinder.radius;
    described->layer.horizontal_angle = cylinder.centralAngle;
    described->layer.aspect_ratio = cylinder.aspectRatio;
    return described;
}

std::optional<DescribedLayer> DescribeEquirect(const XrCompositionLayerEquirect2KHR& equirect, const XrPosef& space,
                                               std::size_t eye) {
    auto described = DescribeSurface(equirect, LayerShape::kEquirect, space, eye);
    if (!described) return described;
    described->layer.radius = equirect.radius;
    described->layer.horizontal_angle = equirect.centralHorizontalAngle;
    described->layer.upper_angle = equirect.upperVerticalAngle;
    described->layer.lower_angle = equirect.lowerVerticalAngle;
    return described;
}

std::optional<DescribedLayer> DescribeByType(const XrCompositionLayerBaseHeader& header, const XrPosef& space,
                                             std::size_t eye) {
    switch (header.type) {
        case XR_TYPE_COMPOSITION_LAYER_PROJECTION:
            return DescribeProjection(As<XrCompositionLayerProjection>(header), space, eye);
        case XR_TYPE_COMPOSITION_LAYER_QUAD:
            return DescribeQuad(As<XrCompositionLayerQuad>(header), space, eye);
        case XR_TYPE_COMPOSITION_LAYER_CYLINDER_KHR:
            return DescribeCylinder(As<XrCompositionLayerCylinderKHR>(header), space, eye);
        case XR_TYPE_COMPOSITION_LAYER_EQUIRECT2_KHR:
            return DescribeEquirect(As<XrCompositionLayerEquirect2KHR>(header), space, eye);
        default:
            return std::nullopt;
    }
}

}  // namespace

bool IsComposed(XrStructureType layer) {
    switch (layer) {
        case XR_TYPE_COMPOSITION_LAYER_PROJECTION:
        case XR_TYPE_COMPOSITION_LAYER_QUAD:
        case XR_TYPE_COMPOSITION_LAYER_CYLINDER_KHR:
        case XR_TYPE_COMPOSITION_LAYER_EQUIRECT2_KHR:
            return true;
        default:
            return false;
    }
}

std::optional<DescribedLayer> DescribeLayer(const XrCompositionLayerBaseHeader& header, const XrPosef& space,
                                            std::size_t eye) {
    auto described = DescribeByType(header, space, eye);
    if (!described) return described;
    described->layer.has_alpha = (header.layerFlags & XR_COMPOSITION_LAYER_BLEND_TEXTURE_SOURCE_ALPHA_BIT) != 0;
    described->layer.is_premultiplied = (header.layerFlags & XR_COMPOSITION_LAYER_UNPREMULTIPLIED_ALPHA_BIT) == 0;
    return described;
}

}  // namespace simulator
