#include "command/bridge/pictures.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace velmoor {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The value of each character, or 64.
constexpr std::array<std::uint8_t, 256> kValues = [] {
    std::array<std::uint8_t, 256> values{};
    for (auto& each : values) each = 64;
    for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
        values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}();

}  // namespace

std::string decode_base64(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const std::uint8_t value = kValues[static_cast<unsigned char>(c)];
        if (value == 64) break;
        bits = bits << 6 | value;
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes += static_cast<char>(bits >> count & 0xFF);
    }
    return bytes;
}

std::vector<std::string> save_pictures(const json& result, const std::string& directory, const std::string& tool) {
    std::vector<std::string> files;
    const json content = result.is_object() ? result.value("content", json::array()) : json::array();
    for (const json& item : content) {
        if (!item.is_object() || item.value("type", json()) != "image" || !item.value("data", json()).is_string())
            continue;
        std::error_code error;
        std::filesystem::create_directories(directory, error);
        // Named by the time, so that no picture of an earlier run is written over.
        const auto time = std::chrono::system_clock::now().time_since_epoch();
        const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
        const std::string end = item.value("mimeType", json()) == "image/jpeg" ? ".jpg" : ".png";
        std::string name = tool;
        name.append("_")
            .append(std::to_string(milliseconds))
            .append("_")
            .append(std::to_string(files.size()))
            .append(end);
        const std::string path = std::filesystem::absolute(directory).lexically_normal() / name;
        std::ofstream file(path, std::ios::binary);
        file << decode_base64(item["data"].get_ref<const std::string&>()) << std::flush;
        if (!file) throw std::runtime_error("the picture can't be written to " + path);
        files.push_back(path);
    }
    return files;
}

void name_pictures(json& outcome, const std::string& directory, const std::string& tool) {
    const auto result = outcome.find("result");
    if (result == outcome.end() || !result->is_object()) return;
    std::string text;
    try {
        for (const std::string& file : save_pictures(*result, directory, tool)) {
            text += (text.empty() ? "The picture is also in " : ", and another in ") + file;
        }
    } catch (const std::exception& e) {
        text = e.what();
    }
    if (!text.empty()) (*result)["content"].push_back({{"type", "text"}, {"text", text}});
}

}  // namespace velmoor
