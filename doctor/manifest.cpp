#include "doctor/manifest.h"

#include <exception>
#include <filesystem>
#include <stdexcept>

#include "mcp/json.h"

namespace orvanic_xr {
namespace {

std::string TextOf(const mcp::json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::string NeededText(const mcp::json& object, const char* key) {
    std::string text = TextOf(object, key);
    if (text.empty()) throw std::runtime_error(std::string("\"") + key + "\" is missing or no string");
    return text;
}

mcp::json Parsed(std::string_view text) try {
    return mcp::parse_json(text);
} catch (const mcp::json::parse_error& error) {
    throw std::runtime_error("it is no JSON: it is wrong at byte " + std::to_string(error.byte));
}

// The object below `section`, of a manifest whose format the loader knows.
mcp::json SectionOf(std::string_view text, const char* section) {
    const mcp::json manifest = Parsed(text);
    if (!manifest.is_object()) throw std::runtime_error("it is no JSON object");
    if (TextOf(manifest, "file_format_version") != "1.0.0") {
        throw std::runtime_error("\"file_format_version\" is not \"1.0.0\"");
    }
    const auto found = manifest.find(section);
    if (found == manifest.end() || !found->is_object()) {
        throw std::runtime_error(std::string("\"") + section + "\" is missing");
    }
    return *found;
}

std::string LibraryPath(const std::string& manifest_path, const std::string& library) {
    if (library.find('/') == std::string::npos) return library;
    // Absolute, since a normal path may lose its last "/", and with it its meaning to the dynamic linker.
    const std::filesystem::path manifest = std::filesystem::absolute(manifest_path);
    return (manifest.parent_path() / library).lexically_normal();
}

}  // namespace

RuntimeManifest ReadRuntimeManifest(const std::string& path, std::string_view text) {
    RuntimeManifest manifest{.path = path, .name = {}, .library = {}, .problem = {}};
    try {
        const mcp::json runtime = SectionOf(text, "runtime");
        manifest.name = TextOf(runtime, "name");
        manifest.library = LibraryPath(path, NeededText(runtime, "library_path"));
    } catch (const std::exception& error) {
        manifest.problem = error.what();
    }
    return manifest;
}

LayerManifest ReadLayerManifest(const std::string& path, bool implicit, std::string_view text) {
    LayerManifest manifest;
    manifest.path = path;
    manifest.implicit = implicit;
    try {
        const mcp::json layer = SectionOf(text, "api_layer");
        manifest.name = NeededText(layer, "name");
        manifest.library = LibraryPath(path, NeededText(layer, "library_path"));
        NeededText(layer, "api_version");
        NeededText(layer, "implementation_version");
        if (implicit) {
            manifest.disable_environment = NeededText(layer, "disable_environment");
            manifest.enable_environment = TextOf(layer, "enable_environment");
        }
    } catch (const std::exception& error) {
        manifest.problem = error.what();
    }
    return manifest;
}

}  // namespace orvanic_xr
