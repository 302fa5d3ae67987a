#include "layer/instance_extensions.h"

#include <gmock/gmock.h>

#include <string>

#include "tests/fakes/log_capture.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;

std::string Joined(const ExtensionNames& names) {
    std::string text;
    for (const char* name : names) text.append(text.empty() ? "" : " ").append(name ? name : "null");
    return text;
}

TEST(InstanceExtensions, WantedOnesAreAddedBehindTheApplicationsWhereTheRuntimeHasThem) {
    LogCapture log(kLogDebug);
    const ExtensionNames enabled = {"XR_B", nullptr, "XR_EXT_conformance_automation", "XR_A", "XR_B"};
    EXPECT_EQ(
        Joined(MergeWantedExtensions(enabled, {"XR_EXT_conformance_automation", "XR_KEST_pronto_controller_plus"})),
        "XR_B null XR_EXT_conformance_automation XR_A XR_B XR_KEST_pronto_controller_plus");
    EXPECT_THAT(log.take(),
                ElementsAre("WARNING Extension not available: XR_EXT_local_floor",
                            "WARNING Extension not available: XR_KESTX1_simulator_compositor_output_capture",
                            "DEBUG Extension already enabled: XR_EXT_conformance_automation",
                            "INFO Adding extension to instance create info: XR_KEST_pronto_controller_plus"));
    const ExtensionNames missing = {"XR_EXT_local_floor"};
    EXPECT_EQ(Joined(MergeWantedExtensions(missing, {})), "XR_EXT_local_floor") << "as the application said it";
    EXPECT_EQ(Joined(MergeWantedExtensions({}, {"XR_EXT_local_floor", "XR_KESTX1_simulator_compositor_output_capture",
                                                "XR_EXT_conformance_automation", "XR_KEST_pronto_controller_plus"})),
              "XR_EXT_local_floor XR_KESTX1_simulator_compositor_output_capture XR_EXT_conformance_automation "
              "XR_KEST_pronto_controller_plus");
}

}  // namespace
}  // namespace orvanic_xr
