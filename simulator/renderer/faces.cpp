#include "simulator/renderer/faces.h"

namespace simulator {
namespace {

void AddSides(std::vector<Face>& faces, const Solid& solid) {
    const Box& box = solid.box;
    for (int axis = 0; axis < 3; ++axis) {
        const int next = (axis + 1) % 3;
        const int last = (axis + 2) % 3;
        Face far_side;
        far_side.corner = box.corner + box.axes[axis] * box.size[axis];
        far_side.right = box.axes[next];
        far_side.up = box.axes[last];
        far_side.normal = box.axes[axis];
        far_side.width = box.size[next];
        far_side.height = box.size[last];
        far_side.colour = solid.colour;
        far_side.material = solid.material;
        Face near_side = far_side;
        near_side.corner = box.corner;
        near_side.right = box.axes[last];
        near_side.up = box.axes[next];
        near_side.normal = box.axes[axis] * -1.0f;
        near_side.width = box.size[last];
        near_side.height = box.size[next];
        faces.push_back(far_side);
        faces.push_back(near_side);
    }
}

Face SurfaceOf(const Thing& thing) {
    const XrRect2Df& area = *thing.surface;
    Face face;
    face.corner = Vec3(thing.pose.position) + Rotated(thing.pose.orientation, {area.offset.x, area.offset.y, 0.0f});
    face.right = Rotated(thing.pose.orientation, {1, 0, 0});
    face.up = Rotated(thing.pose.orientation, {0, 1, 0});
    face.normal = Rotated(thing.pose.orientation, {0, 0, 1});
    face.width = area.extent.width;
    face.height = area.extent.height;
    face.colour = LinearColour(thing.colour);
    if (thing.label == "FLOOR") face.material = Material::kFloor;
    if (thing.label == "WALL") face.material = Material::kWall;
    return face;
}

// A part of a controller, in the axes of one of its poses; metres.
struct Part {
    Vec3 middle;
    Vec3 size;
};
constexpr Part kHandle = {{0.0f, -0.005f, 0.03f}, {0.034f, 0.038f, 0.115f}};
constexpr Part kHead = {{0.0f, 0.014f, -0.04f}, {0.060f, 0.030f, 0.060f}};
constexpr Part kTrigger = {{0.0f, -0.022f, -0.035f}, {0.016f, 0.034f, 0.016f}};
constexpr Part kRay = {{0.0f, 0.0f, -0.62f}, {0.006f, 0.006f, 1.1f}};

constexpr Vec3 kShell = {0.055f, 0.058f, 0.068f};
constexpr Vec3 kLeftColour = {0.02f, 0.42f, 0.95f};
constexpr Vec3 kRightColour = {1.0f, 0.28f, 0.03f};

void AddPart(std::vector<Face>& faces, const XrPosef& pose, const Part& part, const Vec3& colour, Material material) {
    AddSides(faces, {BoxAt(pose, part.middle - part.size * 0.5f, part.size), colour, material});
}

}  // namespace

std::vector<Face> FacesOf(const Thing& thing) {
    if (!thing.body) return {SurfaceOf(thing)};
    std::vector<Face> faces;
    for (const Solid& solid : SolidsOf(thing)) AddSides(faces, solid);
    return faces;
}

std::vector<Face> FacesOf(const ControllerView& controller, bool is_left) {
    std::vector<Face> faces;
    if (!controller.IsPresent()) return faces;
    const Vec3 colour = is_left ? kLeftColour : kRightColour;
    const XrPosef& body = controller.grip ? *controller.grip : *controller.aim;
    AddPart(faces, body, kHandle, kShell, Material::kPlain);
    AddPart(faces, body, kHead, colour, Material::kPlain);
    AddPart(faces, body, kTrigger, Mix(kShell, colour * 2.0f, controller.trigger), Material::kPlain);
    if (controller.aim) {
        AddPart(faces, *controller.aim, kRay, colour * (0.6f + 2.0f * controller.trigger), Material::kGlowing);
    }
    return faces;
}

}  // namespace simulator
