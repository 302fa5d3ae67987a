#include "simulator/renderer/furniture.h"

#include <cmath>
#include <span>
#include <string_view>

namespace simulator {
namespace {

// As shares of the body: along its width, from its back to its front seen from where it faces, and upwards.
struct Part {
    Vec3 from;
    Vec3 to;
    float brightness = 1.0f;
    Material material = Material::kPlain;
};

constexpr Part kWhole[] = {{{0, 0, 0}, {1, 1, 1}}};

constexpr Part kTable[] = {
    {{0, 0, 0.93f}, {1, 1, 1}},
    {{0.04f, 0.06f, 0}, {0.10f, 0.15f, 0.93f}, 0.6f},
    {{0.90f, 0.06f, 0}, {0.96f, 0.15f, 0.93f}, 0.6f},
    {{0.04f, 0.85f, 0}, {0.10f, 0.94f, 0.93f}, 0.6f},
    {{0.90f, 0.85f, 0}, {0.96f, 0.94f, 0.93f}, 0.6f},
};

constexpr Part kCouch[] = {
    {{0, 0, 0.06f}, {1, 0.24f, 1}, 0.8f},                     // back
    {{0, 0.24f, 0.06f}, {0.09f, 1, 0.70f}, 0.8f},             // arms
    {{0.91f, 0.24f, 0.06f}, {1, 1, 0.70f}, 0.8f},             //
    {{0.09f, 0.24f, 0.06f}, {0.91f, 0.97f, 0.36f}, 0.7f},     // seat
    {{0.095f, 0.24f, 0.36f}, {0.498f, 0.99f, 0.52f}, 1.25f},  // cushions
    {{0.502f, 0.24f, 0.36f}, {0.905f, 0.99f, 0.52f}, 1.25f},  //
    {{0.03f, 0.05f, 0}, {0.97f, 0.92f, 0.06f}, 0.15f},        // plinth
};

constexpr Part kLamp[] = {
    {{0.15f, 0.15f, 0}, {0.85f, 0.85f, 0.02f}, 0.08f},
    {{0.45f, 0.45f, 0.02f}, {0.55f, 0.55f, 0.76f}, 0.08f},
    {{0, 0, 0.74f}, {1, 1, 1}, 1.7f, Material::kGlowing},
};

std::span<const Part> PartsOf(std::string_view label) {
    if (label == "TABLE") return kTable;
    // Its label may be longer than it should.
    if (label.starts_with("COUCH")) return kCouch;
    if (label == "LAMP") return kLamp;
    return kWhole;
}

}  // namespace

Box BoxAt(const XrPosef& pose, const Vec3& offset, const Vec3& size) {
    Box box;
    box.corner = Vec3(pose.position) + Rotated(pose.orientation, offset);
    box.axes[0] = Rotated(pose.orientation, {1, 0, 0});
    box.axes[1] = Rotated(pose.orientation, {0, 1, 0});
    box.axes[2] = Rotated(pose.orientation, {0, 0, 1});
    box.size[0] = size.x;
    box.size[1] = size.y;
    box.size[2] = size.z;
    return box;
}

Vec3 LinearColour(const Colour& colour) {
    const auto linear = [](std::uint8_t level) { return std::pow(static_cast<float>(level) / 255.0f, 2.2f); };
    return {linear(colour.red), linear(colour.green), linear(colour.blue)};
}

std::vector<Solid> SolidsOf(const Thing& thing) {
    const XrRect3DfKS& body = *thing.body;
    const Vec3 offset = {body.offset.x, body.offset.y, body.offset.z};
    const Vec3 size = {body.extent.width, body.extent.height, body.extent.depth};
    std::vector<Solid> solids;
    for (const Part& part : PartsOf(thing.label)) {
        const Box box = BoxAt(thing.pose, offset + part.from * size, (part.to - part.from) * size);
        solids.push_back({box, LinearColour(thing.colour) * part.brightness, part.material});
    }
    return solids;
}

}  // namespace simulator
