#include "doctor/layer_check.h"

#include <gtest/gtest.h>

#include "tests/doctor/finding_line.h"

namespace orvanic_xr {
namespace {

constexpr char kVelmoor[] = "XR_APILAYER_KESTX_velmoor";

std::string Manifest(const std::string& more) {
    return R"({"file_format_version": "1.0.0", "api_layer": {"name": "XR_APILAYER_KESTX_velmoor",
               "api_version": "1.1", "implementation_version": "1")" +
           more + "}}";
}

TEST(LayerManifest, IsReadAsTheLoaderReadsIt) {
    const struct {
        const char* name;
        bool implicit;
        std::string text;
        std::string library;
        std::string problem;
    } rows[] = {
        {"relative to the manifest", false, Manifest(R"(, "library_path": "../lib/l.so")"), "/m/lib/l.so", ""},
        {"no library", false, Manifest(""), "", "\"library_path\" is missing or no string"},
        {"no switch", true, Manifest(R"(, "library_path": "l.so")"), "l.so",
         "\"disable_environment\" is missing or no string"},
        {"another format", false, R"({"file_format_version": 1})", "", "\"file_format_version\" is not \"1.0.0\""},
        {"a runtime's", false, R"({"file_format_version": "1.0.0", "runtime": {}})", "", "\"api_layer\" is missing"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LayerManifest manifest = ReadLayerManifest("/m/x/layer.json", row.implicit, row.text);
        EXPECT_EQ(manifest.library, row.library);
        EXPECT_EQ(manifest.problem, row.problem);
    }
    for (const std::string& hostile : {std::string("{"), std::string(100000, '[')}) {
        EXPECT_NE(ReadLayerManifest("/m", false, hostile).problem, "");
    }
}

LayerManifest Explicit(const char* name) {
    LayerManifest manifest;
    manifest.path = "/e.json";
    manifest.name = name;
    return manifest;
}

TEST(Layer, IsJudgedByWhatSwitchesIt) {
    const Environment named = {{"XR_ENABLE_API_LAYERS", "XR_A:XR_APILAYER_KESTX_velmoor"}};
    const struct {
        const char* name;
        Environment environment;
        std::set<std::string> listed;
        std::string lines;
    } rows[] = {
        {"others named",
         {{"XR_ENABLE_API_LAYERS", "XR_A"}},
         {kVelmoor, "XR_A"},
         "bad installed, but not switched on -> export XR_ENABLE_API_LAYERS=XR_A:XR_APILAYER_KESTX_velmoor\n"},
        {"named, but the loader has its doubts",
         named,
         {"XR_A"},
         "bad switched on, but the loader does not list XR_APILAYER_KESTX_velmoor -> start the application with "
         "XR_LOADER_DEBUG=all, which tells why\n"},
        {"another layer is named in vain",
         named,
         {kVelmoor},
         "bad XR_ENABLE_API_LAYERS names XR_A, which no manifest offers: applications fail to start -> install that "
         "layer, or take the name out\n"
         "ok on by XR_ENABLE_API_LAYERS -> unset XR_ENABLE_API_LAYERS takes it off\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LayerSituation situation{
            row.environment, {Explicit("XR_APILAYER_KESTX_orvanic"), Explicit(kVelmoor)}, {}, row.listed, "install"};
        std::string lines;
        for (const Finding& finding : JudgeLayer(situation, [](const LayerManifest&) { return ""; })) {
            if (finding.subject != "manifest") lines += FindingLine(finding) + "\n";
        }
        EXPECT_EQ(lines, row.lines);
    }
}

}  // namespace
}  // namespace orvanic_xr
