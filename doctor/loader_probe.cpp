#include "doctor/loader_probe.h"

#include <dlfcn.h>
#include <link.h>
#include <openxr/openxr.h>
#include <openxr/openxr_loader_negotiation.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <string_view>
#include <vector>

#include "doctor/child.h"
#include "doctor/whole_file.h"
#include "xr/enum_names.h"

namespace orvanic_xr {
namespace {

constexpr std::chrono::seconds kLimit{10};
constexpr char kLoaderLibrary[] = "libopenxr_loader.so.1";

#if defined(__aarch64__)
constexpr char kArchitecture[] = "aarch64";
#else
constexpr char kArchitecture[] = "x86_64";
#endif

// The child's answer is lines of a word and its value.
void Tell(int output, std::string_view word, std::string_view value) {
    const std::string line = std::string(word) + " " + std::string(value) + "\n";
    [[maybe_unused]] const ssize_t written = write(output, line.data(), line.size());
}

const char* LastLinkError() {
    const char* error = dlerror();
    return error ? error : "unknown error";
}

template <typename Function>
Function Symbol(void* library, const char* name) {
    return reinterpret_cast<Function>(dlsym(library, name));
}

std::string LoadedFrom(void* library) {
    link_map* map = nullptr;
    return dlinfo(library, RTLD_DI_LINKMAP, static_cast<void*>(&map)) == 0 && map ? map->l_name : "";
}

void TellLayers(int output, void* loader) {
    const auto enumerate = Symbol<PFN_xrEnumerateApiLayerProperties>(loader, "xrEnumerateApiLayerProperties");
    std::uint32_t count = 0;
    if (!enumerate || XR_FAILED(enumerate(0, &count, nullptr))) return;
    std::vector<XrApiLayerProperties> layers(count, {XR_TYPE_API_LAYER_PROPERTIES, nullptr, {}, 0, 0, {}});
    if (XR_FAILED(enumerate(count, &count, layers.data()))) return;
    for (const XrApiLayerProperties& layer : layers) Tell(output, "layer", layer.layerName);
}

XrResult TellExtensions(int output, void* loader) {
    const auto enumerate =
        Symbol<PFN_xrEnumerateInstanceExtensionProperties>(loader, "xrEnumerateInstanceExtensionProperties");
    if (!enumerate) return XR_ERROR_FUNCTION_UNSUPPORTED;
    std::uint32_t count = 0;
    XrResult result = enumerate(nullptr, 0, &count, nullptr);
    std::vector<XrExtensionProperties> extensions(count, {XR_TYPE_EXTENSION_PROPERTIES, nullptr, {}, 0});
    if (XR_SUCCEEDED(result) && count > 0) result = enumerate(nullptr, count, &count, extensions.data());
    if (XR_FAILED(result)) return result;
    for (const XrExtensionProperties& extension : extensions) Tell(output, "extension", extension.extensionName);
    return result;
}

void AskInChild(int output) {
    void* loader = dlopen(kLoaderLibrary, RTLD_NOW | RTLD_LOCAL);
    if (!loader) return Tell(output, "problem", LastLinkError());
    Tell(output, "file", LoadedFrom(loader));
    TellLayers(output, loader);
    const XrResult result = TellExtensions(output, loader);
    Tell(output, "runtime", XR_SUCCEEDED(result) ? "loads" : result_name_or_number(result));
}

void NegotiateInChild(int output, const std::string& library, const std::string& layer_name) {
    void* layer = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!layer) return Tell(output, "problem", LastLinkError());
    const auto negotiate = Symbol<PFN_xrNegotiateLoaderApiLayerInterface>(layer, "xrNegotiateLoaderApiLayerInterface");
    if (!negotiate) return Tell(output, "problem", library + " is no OpenXR layer: it has no entry point");
    const XrNegotiateLoaderInfo loader_info{
        XR_LOADER_INTERFACE_STRUCT_LOADER_INFO, XR_LOADER_INFO_STRUCT_VERSION, sizeof(XrNegotiateLoaderInfo),   1,
        XR_CURRENT_LOADER_API_LAYER_VERSION,    XR_MAKE_VERSION(1, 0, 0),      XR_MAKE_VERSION(1, 0x3ff, 0xfff)};
    XrNegotiateApiLayerRequest request{};
    request.structType = XR_LOADER_INTERFACE_STRUCT_API_LAYER_REQUEST;
    request.structVersion = XR_API_LAYER_INFO_STRUCT_VERSION;
    request.structSize = sizeof(request);
    const XrResult result = negotiate(&loader_info, layer_name.c_str(), &request);
    if (XR_FAILED(result) || !request.createApiLayerInstance) {
        Tell(output, "problem", library + " refuses to negotiate: " + result_name_or_number(result));
    }
}

// "1.0.20" of "/usr/lib/libopenxr_loader.so.1.0.20".
std::string VersionOf(const std::string& file) {
    const std::size_t suffix = file.rfind(".so.");
    return suffix == std::string::npos ? std::string() : file.substr(suffix + 4);
}

LoaderTraits TraitsOf(const std::string& file) {
    LoaderTraits traits;
    if (file.starts_with("/usr/local/")) traits.system_directories = {"/usr/local/etc", "/etc"};
    // Old loaders don't have such names; no function of theirs tells.
    if (WholeFile(file).find(std::string("active_runtime.") + kArchitecture) != std::string::npos) {
        traits.architecture = kArchitecture;
    }
    return traits;
}

// What the loader says on its error channel comes as "Error [GENERAL | function | OpenXR-Loader] : text". The first
// such text names the cause; those after it are consequences.
std::string FirstComplaint(const std::string& complaints) {
    const std::size_t start = complaints.find("] : ");
    if (start == std::string::npos) return {};
    return ": " + complaints.substr(start + 4, complaints.find('\n', start) - start - 4);
}

void Take(const std::string& line, LoaderAnswer& answer) {
    const std::size_t blank = std::min(line.find(' '), line.size() - 1);
    const std::string word = line.substr(0, blank);
    const std::string value = line.substr(blank + 1);
    if (word == "problem") answer.problem = value;
    if (word == "file") answer.file = value;
    if (word == "layer") answer.layers.insert(value);
    if (word == "extension") answer.extensions.insert(value);
    if (word == "runtime") answer.runtime_problem = value == "loads" ? "" : value;
}

}  // namespace

LoaderAnswer AskLoader() {
    const ChildOutcome outcome = RunInChild(AskInChild, kLimit);
    LoaderAnswer answer;
    std::istringstream lines(outcome.output);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) Take(line, answer);
    }
    if (answer.file.empty() && answer.problem.empty()) answer.problem = "it " + outcome.accident;
    if (!answer.problem.empty()) return answer;
    std::error_code ignored;
    const std::filesystem::path real = std::filesystem::canonical(answer.file, ignored);
    if (!real.empty()) answer.file = real;
    answer.version = VersionOf(answer.file);
    answer.traits = TraitsOf(answer.file);
    if (!outcome.accident.empty()) {
        answer.runtime_problem = "it " + outcome.accident;
    } else if (!answer.runtime_problem.empty()) {
        answer.runtime_problem += FirstComplaint(outcome.complaints);
    }
    return answer;
}

std::string LayerLibraryProblem(const std::string& library, const std::string& layer_name) {
    const auto negotiate = [&](int output) { NegotiateInChild(output, library, layer_name); };
    const ChildOutcome outcome = RunInChild(negotiate, kLimit);
    if (!outcome.accident.empty()) return library + " " + outcome.accident;
    LoaderAnswer answer;
    if (!outcome.output.empty()) Take(outcome.output.substr(0, outcome.output.find('\n')), answer);
    return answer.problem;
}

}  // namespace orvanic_xr
