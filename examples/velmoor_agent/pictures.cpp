#include "examples/velmoor_agent/pictures.h"

#include <cstdio>
#include <fstream>

#include "examples/velmoor_agent/base64.h"

namespace agent {
namespace {

constexpr auto kBetweenPictures = std::chrono::milliseconds(160);

}  // namespace

std::string SavePicture(const ToolAnswer& answer, const std::string& file) {
    if (answer.images.empty()) return "there is no picture in the answer";
    const std::string png = DecodeBase64(answer.images.front());
    std::ofstream stream(file, std::ios::binary);
    stream.write(png.data(), static_cast<std::streamsize>(png.size()));
    stream.close();
    return stream ? "" : "cannot write " + file;
}

void Film::Shoot() {
    const auto now = std::chrono::steady_clock::now();
    if (directory_.empty() || now < due_) return;
    due_ = now + kBetweenPictures;
    char name[32];
    std::snprintf(name, sizeof name, "/frame_%03d.png", taken_ + 1);
    try {
        const ToolAnswer answer = CallTool(client_, "openxr_capture_composited_image", {{"eye", "left"}});
        if (SavePicture(answer, directory_ + name).empty()) ++taken_;
    } catch (const mcp::client_error&) {
        // The application has ended.
    }
}

}  // namespace agent
