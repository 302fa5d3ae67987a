// What the runtime offers: versions, and instance extensions by one row each.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>

#include "xr/input/extensions.h"

namespace simulator {

// Of OpenXR; an application gets what the one has that it asked for.
using xr_input::kVersion10;
using xr_input::kVersion11;

using xr_input::kConformanceAutomation;
inline constexpr char kLocalFloor[] = "XR_EXT_local_floor";
inline constexpr char kLocateSpaces[] = "XR_KHR_locate_spaces";
inline constexpr char kDepthLayer[] = "XR_KHR_composition_layer_depth";
inline constexpr char kCylinderLayer[] = "XR_KHR_composition_layer_cylinder";
inline constexpr char kEquirect2Layer[] = "XR_KHR_composition_layer_equirect2";
inline constexpr char kVisibilityMask[] = "XR_KHR_visibility_mask";
inline constexpr char kConvertTimespec[] = "XR_KHR_convert_timespec_time";
inline constexpr char kHandTracking[] = "XR_EXT_hand_tracking";
inline constexpr char kRefreshRate[] = "XR_FB_display_refresh_rate";
using xr_input::kBdProfiles;
using xr_input::kCosmosProfile;
using xr_input::kFocus3Profile;
using xr_input::kHpProfile;
using xr_input::kMl2Profile;
using xr_input::kOdysseyProfile;
using xr_input::kProntoProfile;
inline constexpr char kSpatialEntity[] = "XR_KS_spatial_entity";
inline constexpr char kSpatialEntityQuery[] = "XR_KS_spatial_entity_query";
inline constexpr char kSpatialEntityStorage[] = "XR_KS_spatial_entity_storage";
inline constexpr char kSpatialEntityContainer[] = "XR_KS_spatial_entity_container";
inline constexpr char kScene[] = "XR_KS_scene";
inline constexpr char kCompositorCapture[] = "XR_KESTX1_simulator_compositor_output_capture";
inline constexpr char kFrameDemand[] = "XR_KESTX1_simulator_frame_demand";
inline constexpr char kEglEnable[] = "XR_MNDX_egl_enable";
inline constexpr char kOpenGlEnable[] = "XR_KHR_opengl_enable";
inline constexpr char kOpenGlEsEnable[] = "XR_KHR_opengl_es_enable";
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
    {kOpenGlEnable, 12, nullptr},
    {kOpenGlEsEnable, 10, nullptr},
    {kEglEnable, 2, nullptr},
    {kLocalFloor, 1, nullptr},
    {kLocateSpaces, XR_KHR_locate_spaces_SPEC_VERSION, nullptr},
    {XR_KHR_MAINTENANCE1_EXTENSION_NAME, XR_KHR_maintenance1_SPEC_VERSION, nullptr},
    {XR_EXT_UUID_EXTENSION_NAME, XR_EXT_uuid_SPEC_VERSION, nullptr},
    {kDepthLayer, XR_KHR_composition_layer_depth_SPEC_VERSION, nullptr},
    {kCylinderLayer, XR_KHR_composition_layer_cylinder_SPEC_VERSION, nullptr},
    {kEquirect2Layer, XR_KHR_composition_layer_equirect2_SPEC_VERSION, nullptr},
    {kVisibilityMask, XR_KHR_visibility_mask_SPEC_VERSION, nullptr},
    {kConvertTimespec, 1, nullptr},
    {kHandTracking, XR_EXT_hand_tracking_SPEC_VERSION, nullptr},
    {kRefreshRate, XR_FB_display_refresh_rate_SPEC_VERSION, nullptr},
    {kMl2Profile, XR_ML_ml2_controller_interaction_SPEC_VERSION, nullptr},
    {kBdProfiles, XR_BD_controller_interaction_SPEC_VERSION, nullptr},
    {kCosmosProfile, XR_HTC_vive_cosmos_controller_interaction_SPEC_VERSION, nullptr},
    {kFocus3Profile, XR_HTC_vive_focus3_controller_interaction_SPEC_VERSION, nullptr},
    {kOdysseyProfile, XR_EXT_samsung_odyssey_controller_SPEC_VERSION, nullptr},
    {kHpProfile, XR_EXT_hp_mixed_reality_controller_SPEC_VERSION, nullptr},
    {kConformanceAutomation, 3, nullptr},
    {kProntoProfile, 1, nullptr},
    {kCompositorCapture, 1, nullptr},
    {kFrameDemand, 1, nullptr},
    {kSpatialEntity, 1, nullptr},
    {kSpatialEntityQuery, 1, kSpatialEntity},
    {kSpatialEntityStorage, 1, kSpatialEntity},
    {kSpatialEntityContainer, 1, kSpatialEntity},
    {kScene, 1, kSpatialEntity},
};

}  // namespace simulator
