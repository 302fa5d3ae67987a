// The instance extensions that go down to the runtime: what the application asked for, and what the tools need
// on top, without the layer's own. Pure work on names, apart from the log lines.
#pragma once

#include <set>
#include <span>
#include <string>
#include <vector>

namespace orvanic_xr {

// Added to every instance whose runtime has them, in this order.
inline constexpr const char* kWantedExtensions[] = {
    "XR_EXT_local_floor",
    "XR_KESTX1_simulator_compositor_output_capture",
    "XR_EXT_conformance_automation",
    "XR_KEST_pronto_controller_plus",
};

// Answered by the layer; the layers below must never see it.
inline constexpr const char* kExternalToolExtension = "XR_KESTX1_orvanic_external_tool";

// Names as the application passes them: pointers are borrowed, null entries are kept.
using ExtensionNames = std::vector<const char*>;

// `enabled` in its order, followed by each wanted extension that is available and not enabled yet.
ExtensionNames MergeWantedExtensions(std::span<const char* const> enabled, const std::set<std::string>& available);

// `names` without the layer's own extension; as long as `names` if it is not there.
ExtensionNames WithoutOwnExtension(std::span<const char* const> names);

}  // namespace orvanic_xr
