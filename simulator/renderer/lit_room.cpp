#include "simulator/renderer/lit_room.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace simulator {
namespace {

constexpr float kCell = 0.08f;
constexpr std::size_t kMostCells = 96;
// What is narrower than this both ways throws no shadow: a hundred crates would take a second.
constexpr float kLeastShadow = 0.2f;
// Shadows start this far from the face, or the face would lie in its own.
constexpr float kLift = 0.002f;

// It hangs this far below the ceiling's height.
constexpr float kPanelDrop = 0.03f;
constexpr Vec3 kPanelMiddle = {0.0f, kRoomHeight - kPanelDrop, 0.0f};
constexpr float kPanelWidth = 1.4f;
constexpr float kPanelDepth = 0.9f;
constexpr int kPanelSteps = 4;
constexpr Vec3 kPanelLight = {6.2f, 6.0f, 5.5f};
constexpr Vec3 kLampLight = {0.36f, 0.23f, 0.09f};
constexpr Vec3 kAmbientLight = {0.50f, 0.54f, 0.60f};
// How near something has to be to keep the light of the surroundings away.
constexpr float kAmbientReach = 1.0f;
constexpr int kAmbientRays = 16;

struct Ray {
    Vec3 origin;
    Vec3 direction;
};

// How far the ray gets before it enters the box, at most `reach`; 0 from inside.
float FreeWay(const Ray& ray, const Box& box, float reach) {
    const Vec3 from_corner = ray.origin - box.corner;
    float enters = 0.0f;
    float leaves = reach;
    for (int axis = 0; axis < 3; ++axis) {
        const float start = Dot(from_corner, box.axes[axis]);
        const float speed = Dot(ray.direction, box.axes[axis]);
        if (std::abs(speed) < 1e-7f) {
            if (start < 0.0f || start > box.size[axis]) return reach;
            continue;
        }
        const float low = -start / speed;
        const float high = (box.size[axis] - start) / speed;
        enters = std::max(enters, std::min(low, high));
        leaves = std::min(leaves, std::max(low, high));
        if (enters >= leaves) return reach;
    }
    return enters;
}

float FreeWay(const Ray& ray, const Face& face, float reach) {
    const float approach = -Dot(ray.direction, face.normal);
    if (approach < 1e-6f) return reach;
    const float way = Dot(ray.origin - face.corner, face.normal) / approach;
    if (way < 0.0f || way >= reach) return reach;
    const Vec3 on_face = ray.origin + ray.direction * way - face.corner;
    const float u = Dot(on_face, face.right);
    const float v = Dot(on_face, face.up);
    return u >= 0.0f && u <= face.width && v >= 0.0f && v <= face.height ? way : reach;
}

Vec3 MiddleOf(const Box& box) {
    Vec3 middle = box.corner;
    for (int axis = 0; axis < 3; ++axis) middle = middle + box.axes[axis] * (box.size[axis] * 0.5f);
    return middle;
}

bool ThrowsShadow(const Box& box) {
    return std::count_if(std::begin(box.size), std::end(box.size), [](float size) { return size >= kLeastShadow; }) > 1;
}

// What stands in the way of light.
struct Blockers {
    explicit Blockers(const std::vector<Thing>& things) {
        for (const Thing& thing : things) {
            if (!thing.body) {
                surfaces.push_back(FacesOf(thing).front());
                continue;
            }
            for (const Solid& solid : SolidsOf(thing)) {
                if (solid.material == Material::kGlowing) {
                    lamp = MiddleOf(solid.box);
                } else if (ThrowsShadow(solid.box)) {
                    bodies.push_back(solid.box);
                }
            }
        }
    }

    bool LetThrough(const Ray& ray, float way) const {
        return std::all_of(bodies.begin(), bodies.end(),
                           [&](const Box& body) { return FreeWay(ray, body, way) >= way; });
    }

    std::vector<Box> bodies;
    std::vector<Face> surfaces;
    std::optional<Vec3> lamp;
};

// 1 in full view of a light that shines with strength 1 from a metre away; falls off with the square.
float LightFrom(const Vec3& light, const Vec3& point, const Vec3& normal, const Blockers& blockers) {
    const Vec3 way = light - point;
    const float distance = Length(way);
    const Ray ray = {point, way * (1.0f / distance)};
    const float facing = Dot(normal, ray.direction);
    if (facing <= 0.0f || !blockers.LetThrough(ray, distance)) return 0.0f;
    return facing / std::max(distance * distance, 0.05f);
}

float PanelLight(const Vec3& point, const Vec3& normal, const Blockers& blockers) {
    float sum = 0.0f;
    for (int i = 0; i < kPanelSteps * kPanelSteps; ++i) {
        const int column = i % kPanelSteps;
        const int row = i / kPanelSteps;
        const float x = (static_cast<float>(column) + 0.5f) / kPanelSteps - 0.5f;
        const float z = (static_cast<float>(row) + 0.5f) / kPanelSteps - 0.5f;
        const Vec3 light = kPanelMiddle + Vec3{x * kPanelWidth, 0.0f, z * kPanelDepth};
        // It shines downwards, and most strongly straight down.
        const Vec3 down = light - point;
        const float slant = std::max(down.y / std::max(Length(down), 1e-3f), 0.0f);
        sum += slant * LightFrom(light, point, normal, blockers);
    }
    return sum / (kPanelSteps * kPanelSteps);
}

// The share of the surroundings' light that reaches the point: little in corners and under furniture.
float AmbientLight(const Vec3& point, const Face& face, const Blockers& blockers) {
    float sum = 0.0f;
    for (int i = 0; i < kAmbientRays; ++i) {
        // A spiral that is densest around the normal.
        const float radius = std::sqrt((static_cast<float>(i) + 0.5f) / kAmbientRays);
        const float angle = 2.3999632f * static_cast<float>(i);
        const Vec3 direction = face.right * (radius * std::cos(angle)) + face.up * (radius * std::sin(angle)) +
                               face.normal * std::sqrt(1.0f - radius * radius);
        const Ray ray = {point, direction};
        float way = kAmbientReach;
        for (const Box& body : blockers.bodies) way = std::min(way, FreeWay(ray, body, way));
        for (const Face& surface : blockers.surfaces) way = std::min(way, FreeWay(ray, surface, way));
        sum += way / kAmbientReach;
    }
    return sum / kAmbientRays;
}

Vec3 LightAt(const Vec3& on_face, const Face& face, const Blockers& blockers) {
    const Vec3 point = on_face + face.normal * kLift;
    Vec3 light = kAmbientLight * AmbientLight(point, face, blockers);
    light = light + kPanelLight * PanelLight(point, face.normal, blockers);
    if (blockers.lamp) light = light + kLampLight * LightFrom(*blockers.lamp, point, face.normal, blockers);
    return light;
}

std::size_t CellsAlong(float length) {
    return std::clamp<std::size_t>(static_cast<std::size_t>(length / kCell), 2, kMostCells);
}

LightMap Illuminate(const Face& face, const Blockers& blockers) {
    const std::size_t columns = CellsAlong(face.width);
    const std::size_t rows = CellsAlong(face.height);
    std::vector<Vec3> cells;
    cells.reserve(columns * rows);
    for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t column = 0; column < columns; ++column) {
            const float u = face.width * (static_cast<float>(column) + 0.5f) / static_cast<float>(columns);
            const float v = face.height * (static_cast<float>(row) + 0.5f) / static_cast<float>(rows);
            cells.push_back(LightAt(face.PointAt(u, v), face, blockers));
        }
    }
    return {columns, rows, std::move(cells)};
}

// The panel itself, seen from below.
Face PanelFace() {
    Face face;
    face.corner = kPanelMiddle - Vec3{kPanelWidth, 0.0f, kPanelDepth} * 0.5f;
    face.right = {1, 0, 0};
    face.up = {0, 0, 1};
    face.normal = {0, -1, 0};
    face.width = kPanelWidth;
    face.height = kPanelDepth;
    face.colour = {3.0f, 3.0f, 2.9f};
    face.material = Material::kGlowing;
    return face;
}

// The two cells that a place lies between, and the share of the second.
struct Between {
    Between(float share, std::size_t count) {
        const float place = std::clamp(share * static_cast<float>(count) - 0.5f, 0.0f, static_cast<float>(count - 1));
        first = std::min(static_cast<std::size_t>(place), count - 2);
        share_of_second = place - static_cast<float>(first);
    }

    std::size_t first;
    float share_of_second;
};

}  // namespace

LightMap::LightMap(std::size_t columns, std::size_t rows, std::vector<Vec3> cells)
    : columns_(columns), rows_(rows), cells_(std::move(cells)) {}

Vec3 LightMap::At(float u_share, float v_share) const {
    const Between column(u_share, columns_);
    const Between row(v_share, rows_);
    const Vec3* lower = &cells_[row.first * columns_ + column.first];
    const Vec3* upper = lower + columns_;
    return Mix(Mix(lower[0], lower[1], column.share_of_second), Mix(upper[0], upper[1], column.share_of_second),
               row.share_of_second);
}

LitRoom::LitRoom(const std::vector<Thing>& things) {
    const Blockers blockers(things);
    for (const Thing& thing : things) {
        for (Face& face : FacesOf(thing)) {
            light.push_back(Illuminate(face, blockers));
            faces.push_back(face);
        }
    }
    faces.push_back(PanelFace());
    light.push_back(Illuminate(faces.back(), blockers));
}

}  // namespace simulator
