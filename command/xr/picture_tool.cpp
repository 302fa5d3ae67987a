#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "capture/base64.h"
#include "command/bridge/arguments.h"
#include "command/bridge/pictures.h"
#include "command/xr/image.h"
#include "command/xr/xr_tools.h"

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

json take_pictures(const json& arguments, tool_run& run) {
    const wish wanted = wish_of(arguments);
    json content = json::array();
    json told = json::array();
    for (const std::string& eye : wanted.eyes) {
        json asked = app_of(arguments);
        asked["eye"] = eye;
        json result = run.call("openxr_capture_composited_image", asked);
        const json picture = picture_in(result);
        if (picture.is_null()) return result;  // it says why
        const image whole = read_png(decode_base64(picture["data"].get_ref<const std::string&>()));
        const area part = area_of(wanted.crop, whole);
        const image shown = with_largest_edge(wanted.crop.empty() ? whole : cut(whole, part), wanted.largest_edge);
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

own_tool make_picture_tool() {
    return {own_declaration(
                "xr_picture", "What the user sees: as openxr_capture_composited_image, but small.",
                {{"eye", choice_property({"left", "right", "both"}, "Default left")},
                 {"largest_edge", property("integer", "In pixels; default 1024. Nothing is enlarged")},
                 {"crop", numbers_property(4, "Left, top, right and bottom of the part to show, each from 0 to 1")},
                 {"format", choice_property({"png", "jpeg"}, "Default png")}},
                true),
            take_pictures};
}

}  // namespace velmoor
