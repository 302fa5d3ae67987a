// The instance extensions that the runtime offers, one row each.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>

namespace simulator {

inline constexpr char kConformanceAutomation[] = "XR_EXT_conformance_automation";
inline constexpr char kLocalFloor[] = "XR_EXT_local_floor";
inline constexpr char kProntoProfile[] = "XR_KEST_pronto_controller_plus";
inline constexpr char kSpatialEntity[] = "XR_KS_spatial_entity";
inline constexpr char kSpatialEntityQuery[] = "XR_KS_spatial_entity_query";
inline constexpr char kSpatialEntityStorage[] = "XR_KS_spatial_entity_storage";
inline constexpr char kSpatialEntityContainer[] = "XR_KS_spatial_entity_container";
inline constexpr char kScene[] = "XR_KS_scene";
inline constexpr char kCompositorCapture[] = "XR_KESTX1_simulator_compositor_output_capture";
inline constexpr char kVulkanEnable[] = "XR_KHR_vulkan_enable";
inline constexpr char kVulkanEnable2[] = "XR_KHR_vulkan_enable2";
inline constexpr char kHeadless[] = "XR_MND_headless";

struct Extension {
    const char* name;
    std::uint32_t version;
    // Another extension that has to be enabled with it, or null.
    const char* needs;
};

inline constexpr Extension kExtensions[] = {
    {kHeadless, 2, nullptr},
    {kVulkanEnable, 10, nullptr},
    {kVulkanEnable2, 4, nullptr},
    {kLocalFloor, 1, nullptr},
    {kConformanceAutomation, 3, nullptr},
    {kProntoProfile, 1, nullptr},
    {kCompositorCapture, 1, nullptr},
    {kSpatialEntity, 1, nullptr},
    {kSpatialEntityQuery, 1, kSpatialEntity},
    {kSpatialEntityStorage, 1, kSpatialEntity},
    {kSpatialEntityContainer, 1, kSpatialEntity},
    {kScene, 1, kSpatialEntity},
};

}  // namespace simulator
