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
        {"absolute", false, Manifest(R"(, "library_path": "/opt/l.so")"), "/opt/l.so", ""},
        {"left to the dynamic linker", false, Manifest(R"(, "library_path": "l.so")"), "l.so", ""},
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

TEST(RuntimeManifest, IsReadAsTheLoaderReadsIt) {
    const RuntimeManifest good = ReadRuntimeManifest(
        "/m/r.json", R"({"file_format_version": "1.0.0", "runtime": {"name": "R", "library_path": "./r.so"}})");
    EXPECT_EQ(good.name + " " + good.library + good.problem, "R /m/r.so");
    const RuntimeManifest bad =
        ReadRuntimeManifest("/m/r.json", R"({"file_format_version": "1.0.0", "runtime": {"library_path": 5}})");
    EXPECT_EQ(bad.problem, "\"library_path\" is missing or no string");
}

LayerManifest Explicit(const char* name = kVelmoor) {
    LayerManifest manifest;
    manifest.path = "/e.json";
    manifest.name = name;
    return manifest;
}

LayerManifest Implicit(const char* enable) {
    LayerManifest manifest = Explicit();
    manifest.path = "/i.json";
    manifest.implicit = true;
    manifest.disable_environment = "OFF";
    manifest.enable_environment = enable;
    return manifest;
}

LayerManifest Broken() {
    LayerManifest manifest = Explicit("");
    manifest.problem = "torn";
    return manifest;
}

std::string Lines(const Findings& findings) {
    std::string lines;
    for (const Finding& finding : findings) {
        if (finding.subject == "manifest" && finding.mark == Mark::Ok) continue;
        lines += FindingLine(finding) + "\n";
    }
    return lines;
}

TEST(Layer, IsJudgedByWhatSwitchesIt) {
    const Environment named = {{"XR_ENABLE_API_LAYERS", "XR_A:XR_APILAYER_KESTX_velmoor"}};
    const std::set<std::string> listed = {kVelmoor, "XR_A"};
    const std::string in_vain =
        "bad XR_ENABLE_API_LAYERS names XR_APILAYER_KESTX_velmoor, which no manifest offers: applications "
        "fail to start -> install, or take the name out\n";
    const struct {
        const char* name;
        std::vector<LayerManifest> manifests;
        Environment environment;
        std::set<std::string> listed;
        std::string lines;
    } rows[] = {
        {"explicit and named",
         {Explicit()},
         named,
         listed,
         "ok on by XR_ENABLE_API_LAYERS -> unset XR_ENABLE_API_LAYERS takes it off\n"},
        {"explicit, others named",
         {Explicit("XR_APILAYER_KESTX_orvanic"), Explicit()},
         {{"XR_ENABLE_API_LAYERS", "XR_A"}},
         listed,
         "bad installed, but not switched on -> export XR_ENABLE_API_LAYERS=XR_A:XR_APILAYER_KESTX_velmoor\n"},
        {"named, but the loader has its doubts",
         {Explicit()},
         named,
         {"XR_A"},
         "bad switched on, but the loader does not list XR_APILAYER_KESTX_velmoor -> start the application with "
         "XR_LOADER_DEBUG=all, which tells why\n"},
        {"named in vain", {}, named, {"XR_A"}, in_vain + "bad not found below /a, /b -> install\n"},
        {"another layer is named in vain",
         {Explicit()},
         named,
         {kVelmoor},
         "bad XR_ENABLE_API_LAYERS names XR_A, which no manifest offers: applications fail to start -> install that "
         "layer, or take the name out\n"
         "ok on by XR_ENABLE_API_LAYERS -> unset XR_ENABLE_API_LAYERS takes it off\n"},
        {"implicit, until asked, beside an explicit one",
         {Explicit(), Implicit("ON")},
         {},
         {},
         "bad installed for this user, but off until ON is set -> export ON=1\n"},
        {"off wins, though empty",
         {Implicit("ON")},
         {{"ON", "1"}, {"OFF", ""}},
         {},
         "bad installed for each application of this user, but OFF is set -> unset OFF\n"},
        {"a broken one beside a good one",
         {Broken(), Explicit()},
         named,
         listed,
         "warn /e.json (explicit): torn -> install the layer anew, or remove this manifest\n"
         "ok on by XR_ENABLE_API_LAYERS -> unset XR_ENABLE_API_LAYERS takes it off\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LayerSituation situation{row.environment,
                                       row.manifests,
                                       {"/a/openxr/1/api_layers/explicit.d", "/b/openxr/1/api_layers/explicit.d",
                                        "/a/openxr/1/api_layers/implicit.d"},
                                       row.listed,
                                       "install"};
        EXPECT_EQ(Lines(JudgeLayer(situation, [](const LayerManifest&) { return ""; })), row.lines);
    }
}

}  // namespace
}  // namespace orvanic_xr
