#include "command/watch/room.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

#include "command/xr/aim.h"
#include "command/xr/poses.h"
#include "xr/pose_math.h"

namespace velmoor {
namespace {

constexpr std::size_t kMostEntities = 200;
constexpr std::size_t kMostNameBytes = 80;
// Corners that are nearer to each other are one.
constexpr float kNear = 0.001f;

bool is_near(const plan_point& one, const plan_point& other) {
    return std::hypot(one.x - other.x, one.z - other.z) < kNear;
}

// Positive if the way through the three turns to one side, negative if to the other.
float turn(const plan_point& a, const plan_point& b, const plan_point& c) {
    return (b.x - a.x) * (c.z - a.z) - (b.z - a.z) * (c.x - a.x);
}

// One half of a hull, along points that are in order.
template <typename Iterator>
std::vector<plan_point> half_hull(Iterator begin, Iterator end) {
    std::vector<plan_point> hull;
    for (; begin != end; ++begin) {
        while (hull.size() > 1 && turn(hull[hull.size() - 2], hull.back(), *begin) <= kNear * kNear) hull.pop_back();
        hull.push_back(*begin);
    }
    hull.pop_back();  // the other half begins with it
    return hull;
}

float number_in(const json& object, const char* key) {
    const json found = object.is_object() ? object.value(key, json()) : json();
    return found.is_number() ? found.get<float>() : 0;
}

// Millimetres are enough, and the text stays short.
double rounded(float metres) {
    return std::round(static_cast<double>(metres) * 1000) / 1000;
}

std::optional<std::vector<plan_point>> outline_in(const json& entity) {
    for (const char* const key : {"bounding_box_3d", "bounding_box_2d"}) {
        const json box = entity.value(key, json());
        if (!box.is_object()) continue;
        const auto center = pose_from(box.value("center", json()));
        const json size = box.value("size", json());
        if (!center) continue;
        return outline_of(*center, {number_in(size, "width"), number_in(size, "height"), number_in(size, "depth")});
    }
    return std::nullopt;
}

std::string text_in(const json& object, const char* key) {
    const json found = object.value(key, json());
    return found.is_string() ? found.get<std::string>().substr(0, kMostNameBytes) : std::string();
}

std::optional<double> end_of_frame(const json& frame) {
    const json timing = frame.is_object() ? frame.value("frame_timing", json()) : json();
    const json end = timing.is_object() ? timing.value("end_frame_timestamp", json()) : json();
    const json time = end.is_object() ? end.value("unix_timestamp", json()) : json();
    return time.is_number() ? std::optional(time.get<double>()) : std::nullopt;
}

}  // namespace

std::vector<plan_point> outline_of(const XrPosef& center, const XrVector3f& size) {
    std::vector<plan_point> corners;
    for (int i = 0; i < 8; ++i) {
        const auto half = [i](int bit, float whole) { return (i & bit ? 0.5f : -0.5f) * whole; };
        const XrVector3f corner{half(1, size.x), half(2, size.y), half(4, size.z)};
        const XrVector3f at = orvanic_xr::Add(center.position, orvanic_xr::Rotate(center.orientation, corner));
        const plan_point seen{at.x, at.z};
        const auto is_it = [&](const plan_point& each) { return is_near(each, seen); };
        if (std::none_of(corners.begin(), corners.end(), is_it)) corners.push_back(seen);
    }
    if (corners.size() < 3) return corners;
    std::sort(corners.begin(), corners.end(), [](const plan_point& one, const plan_point& other) {
        return one.x < other.x || (one.x == other.x && one.z < other.z);
    });
    std::vector<plan_point> hull = half_hull(corners.begin(), corners.end());
    const std::vector<plan_point> other = half_hull(corners.rbegin(), corners.rend());
    hull.insert(hull.end(), other.begin(), other.end());
    return hull;
}

json entities_on_plan(const json& answer) {
    json list = json::array();
    const json entities = answer.is_object() ? answer.value("entities", json()) : json();
    if (!entities.is_array()) return list;
    for (const json& each : entities) {
        if (list.size() == kMostEntities) break;
        if (!each.is_object()) continue;
        const auto outline = outline_in(each);
        if (!outline) continue;
        json points = json::array();
        for (const plan_point& point : *outline) points.push_back({rounded(point.x), rounded(point.z)});
        list.push_back(
            {{"name", text_in(each, "name")}, {"label", text_in(each, "semantic_label")}, {"outline", points}});
    }
    return list;
}

json device_on_plan(const json& answer) {
    const json flags = answer.is_object() ? answer.value("flags", json()) : json();
    if (!flags.is_object() || flags.value("position_valid", json()) != true ||
        flags.value("orientation_valid", json()) != true) {
        return nullptr;
    }
    const auto pose = pose_from(answer.value("pose", json()));
    if (!pose) return nullptr;
    const auto degrees = [](float radians) { return std::round(radians * 180 / std::numbers::pi_v<float>); };
    const XrVector3f ahead = orvanic_xr::Rotate(pose->orientation, {0, 0, -1});
    return {{"position", {rounded(pose->position.x), rounded(pose->position.y), rounded(pose->position.z)}},
            {"heading", degrees(heading_of(pose->orientation))},
            {"pitch", degrees(std::asin(std::clamp(ahead.y, -1.0f, 1.0f)))}};
}

json frames_in(const json& answer, double now) {
    std::vector<double> ends;
    const json history = answer.is_object() ? answer.value("history", json()) : json();
    for (const json& each : history.is_array() ? history : json::array()) {
        if (const auto end = end_of_frame(each)) ends.push_back(*end);
    }
    const auto last = end_of_frame(answer);
    if (!last) return nullptr;
    json told{{"since_last", std::max(0.0, now - *last)}};
    const auto [first, latest] = std::minmax_element(ends.begin(), ends.end());
    if (ends.size() > 1 && *latest > *first) {
        told["rate"] = std::round(static_cast<double>(ends.size() - 1) / (*latest - *first) * 10) / 10;
    }
    return told;
}

}  // namespace velmoor
