#include "doctor/wanted_extensions.h"

#include <vector>

#include "doctor/joined.h"
#include "doctor/layer_check.h"

namespace orvanic_xr {
namespace {

struct WantedExtensions {
    std::vector<std::string> names;          // all of them are needed
    bool by_automation_layer;                // it brings them where the runtime has none
    std::vector<std::string> missing_tools;  // not offered otherwise
    std::string limit;                       // what is lost otherwise
};

const std::vector<WantedExtensions>& WantedRows() {
    static const std::vector<WantedExtensions> rows = {
        {{"XR_EXT_conformance_automation"},
         true,
         {"openxr_set_head_pose", "openxr_set_controller_pose", "openxr_set_controller_input"},
         "nothing can be moved or pressed"},
        {{"XR_KESTX1_simulator_compositor_output_capture"},
         true,
         {"openxr_capture_composited_image"},
         "no picture can be taken"},
        {{"XR_KEST_pronto_controller_plus"}, true, {}, "simulated controllers have no profile to act as"},
        {{"XR_EXT_local_floor"}, false, {}, "poses are told relative to \"local\" unless another space is named"},
        {{"XR_KS_spatial_entity", "XR_KS_spatial_entity_query", "XR_KS_spatial_entity_container", "XR_KS_scene"},
         false,
         {},
         "openxr_list_spatial_entities finds nothing"},
    };
    return rows;
}

std::vector<std::string> NotOffered(const std::vector<std::string>& names, const std::set<std::string>& offered) {
    std::vector<std::string> lacking;
    for (const std::string& name : names) {
        if (!offered.contains(name)) lacking.push_back(name);
    }
    return lacking;
}

}  // namespace

std::set<std::string> MissingTools(const std::set<std::string>& offered) {
    std::set<std::string> missing;
    for (const WantedExtensions& row : WantedRows()) {
        if (NotOffered(row.names, offered).empty()) continue;
        missing.insert(row.missing_tools.begin(), row.missing_tools.end());
    }
    return missing;
}

Findings JudgeExtensions(const std::set<std::string>& offered, AutomationLayer automation) {
    Findings findings;
    for (const WantedExtensions& row : WantedRows()) {
        const std::vector<std::string> lacking = NotOffered(row.names, offered);
        if (lacking.empty() || (row.by_automation_layer && automation == AutomationLayer::kOn)) continue;
        std::string text = Joined(lacking) + " not offered: " + row.limit;
        if (!row.missing_tools.empty()) text += "; missing: " + Joined(row.missing_tools);
        const bool can_be_had = row.by_automation_layer && automation == AutomationLayer::kInstalled;
        findings.push_back({Mark::Warn, "extension", text,
                            can_be_had ? "add " + std::string(kAutomationLayer) + " to XR_ENABLE_API_LAYERS, behind " +
                                             "Velmoor's layer"
                                       : "use a runtime that has it, or do without"});
    }
    if (findings.empty()) {
        const bool by_layer = !MissingTools(offered).empty();
        findings.push_back({Mark::Ok, "extension",
                            by_layer ? "runtime and automation layer offer all that the tools want"
                                     : "the runtime offers all that the tools want",
                            "to list the room's things, the application has to enable XR_KS_scene and its kin"});
    }
    return findings;
}

}  // namespace orvanic_xr
