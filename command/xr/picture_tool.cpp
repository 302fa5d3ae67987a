#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "capture/base64.h"
#include "command/bridge/arguments.h"
#include "command/bridge/bridge.h"
#include "command/bridge/pictures.h"
#include "command/xr/image.h"
#include "command/xr/picture_memory.h"
#include "command/xr/poses.h"
#include "command/xr/xr_tools.h"
#include "xr/pose_math.h"
#include "xr/simulator_view.h"

namespace velmoor {
namespace {

constexpr double kUsualEdge = 1024;
constexpr double kMostEdge = 16384;
constexpr int kJpegQuality = 85;

struct wish {
    std::vector<std::string> eyes;
    int largest_edge = 0;
    std::vector<double> crop;  // empty for the whole picture
    bool is_jpeg = false;
};

wish wish_of(const json& arguments) {
    wish wanted;
    const std::string eye = choice_argument(arguments, "eye", {"left", "right", "both"});
    wanted.eyes = eye == "both" ? std::vector<std::string>{"left", "right"} : std::vector<std::string>{eye};
    wanted.largest_edge = static_cast<int>(number_argument(arguments, "largest_edge", kUsualEdge, 1, kMostEdge));
    wanted.crop = numbers_argument(arguments, "crop", 4, 0, 1);
    if (!wanted.crop.empty() && (wanted.crop[0] >= wanted.crop[2] || wanted.crop[1] >= wanted.crop[3])) {
        throw std::runtime_error("crop must be [left, top, right, bottom], with left < right and top < bottom");
    }
    wanted.is_jpeg = choice_argument(arguments, "format", {"png", "jpeg"}) == "jpeg";
    return wanted;
}

// The pixels that lie in a part of a picture, one at least.
area area_of(const std::vector<double>& crop, const image& in) {
    if (crop.empty()) return {0, 0, in.width, in.height};
    const auto range = [](double from, double to, int size) {
        const int first = std::min(static_cast<int>(std::lround(from * size)), size - 1);
        return std::pair(first, std::max(static_cast<int>(std::lround(to * size)), first + 1));
    };
    const auto [left, right] = range(crop[0], crop[2], in.width);
    const auto [top, bottom] = range(crop[1], crop[3], in.height);
    return {left, top, right - left, bottom - top};
}

// The first picture of a result; null if it has none.
json picture_in(const json& result) {
    const json content = result.is_object() ? result.value("content", json()) : json();
    for (const json& each : content.is_array() ? content : json::array()) {
        if (each.is_object() && each.value("type", json()) == "image" && each.value("data", json()).is_string()) {
            return each;
        }
    }
    return nullptr;
}

// The pose of the head while a picture is taken, from one before it and one after it.
class head_watch {
 public:
    // Throws std::runtime_error where no application answers.
    head_watch(tool_run& run, const json& arguments) : run_(run), where_(app_of(arguments)) {
        const json system = answer_of(run, "openxr_get_system_info", where_);
        shot_.process = run.through().process_for(app_name(arguments));
        if (!system.is_object() || system.value("system_name", json()) != orvanic_xr::kSimulatorSystemName) {
            shot_.unknown =
                "through what a picture was seen is known on Velmoor's simulator alone, and the "
                "application runs on another system: name a point or an entity";
            return;
        }
        before_ = pose();
    }

    shot end(int eye) {
        const auto after = shot_.unknown.empty() ? pose() : std::nullopt;
        if (!shot_.unknown.empty()) return shot_;
        if (!before_ || !after || has_moved(*before_, *after)) {
            shot_.unknown = "the head moved while the picture was taken; take a new one";
            return shot_;
        }
        const auto middle = [](float a, float b) { return (a + b) / 2; };
        const auto& [q, p] = *before_;
        const auto& [r, s] = *after;
        const XrPosef head = {orvanic_xr::safe_normalize(XrQuaternionf{middle(q.x, r.x), middle(q.y, r.y),
                                                                       middle(q.z, r.z), middle(q.w, r.w)}),
                              {middle(p.x, s.x), middle(p.y, s.y), middle(p.z, s.z)}};
        shot_.eye = orvanic_xr::SimulatorEye(head, eye);
        shot_.fov = orvanic_xr::kSimulatorFieldOfView;
        return shot_;
    }

 private:
    // A head that nobody simulates sways.
    static constexpr float kMostMetres = 0.02f;
    static constexpr float kLeastCosine = 0.99996f;  // of half of one degree

    static bool has_moved(const XrPosef& one, const XrPosef& other) {
        const XrVector3f way = orvanic_xr::Add(one.position, orvanic_xr::Negate(other.position));
        return orvanic_xr::Length(way) > kMostMetres ||
               orvanic_xr::Dot(one.orientation, other.orientation) < kLeastCosine;
    }

    std::optional<XrPosef> pose() try { return head_pose(run_, where_); } catch (const std::runtime_error&) {
        return std::nullopt;
    }

    tool_run& run_;
    const json where_;
    shot shot_;
    std::optional<XrPosef> before_;
};

json take_pictures(picture_memory& memory, const json& arguments, tool_run& run) {
    const wish wanted = wish_of(arguments);
    run.stay_with(arguments);
    json content = json::array();
    json told = json::array();
    for (const std::string& eye : wanted.eyes) {
        json asked = app_of(arguments);
        asked["eye"] = eye;
        head_watch watch(run, arguments);
        json result = run.call("openxr_capture_composited_image", asked);
        shot taken = watch.end(eye == "left" ? 0 : 1);
        const json picture = picture_in(result);
        if (picture.is_null()) return result;  // it says why
        const image whole = read_png(decode_base64(picture["data"].get_ref<const std::string&>()));
        const area part = area_of(wanted.crop, whole);
        const image shown = with_largest_edge(wanted.crop.empty() ? whole : cut(whole, part), wanted.largest_edge);
        taken.width = shown.width;
        taken.height = shown.height;
        taken.left = static_cast<double>(part.x) / whole.width;
        taken.top = static_cast<double>(part.y) / whole.height;
        taken.right = taken.left + static_cast<double>(part.width) / whole.width;
        taken.bottom = taken.top + static_cast<double>(part.height) / whole.height;
        memory.keep(eye, taken);
        const std::string file = wanted.is_jpeg ? write_jpeg(shown, kJpegQuality) : write_png(shown);
        content.push_back(
            {{"type", "image"},
             {"data", orvanic_xr::encode_base64(reinterpret_cast<const std::uint8_t*>(file.data()), file.size())},
             {"mimeType", wanted.is_jpeg ? "image/jpeg" : "image/png"}});
        told.push_back({{"eye", eye},
                        {"width", shown.width},
                        {"height", shown.height},
                        {"shows", {{"x", part.x}, {"y", part.y}, {"width", part.width}, {"height", part.height}}},
                        {"of", {{"width", whole.width}, {"height", whole.height}}}});
    }
    content.push_back({{"type", "text"}, {"text", mcp::dump_json({{"pictures", told}})}});
    return {{"content", std::move(content)}, {"isError", false}};
}

}  // namespace

own_tool make_picture_tool(const std::shared_ptr<picture_memory>& memory) {
    return {own_declaration(
                "xr_picture", "What the user sees: as openxr_capture_composited_image, but small.",
                {{"eye", choice_property({"left", "right", "both"}, "Default left")},
                 {"largest_edge", property("integer", "In pixels; default 1024. Nothing is enlarged")},
                 {"crop", numbers_property(4, "Left, top, right and bottom of the part to show, each from 0 to 1")},
                 {"format", choice_property({"png", "jpeg"}, "Default png")}},
                true),
            [memory](const json& arguments, tool_run& run) { return take_pictures(*memory, arguments, run); }};
}

}  // namespace velmoor
