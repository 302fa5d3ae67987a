// Versions and extensions that bring interaction profiles.
#pragma once

#include <openxr/openxr.h>

namespace xr_input {

inline constexpr XrVersion kVersion10 = XR_MAKE_VERSION(1, 0, 0);
inline constexpr XrVersion kVersion11 = XR_MAKE_VERSION(1, 1, 0);

inline constexpr char kConformanceAutomation[] = "XR_EXT_conformance_automation";
inline constexpr char kMl2Profile[] = "XR_ML_ml2_controller_interaction";
inline constexpr char kBdProfiles[] = "XR_BD_controller_interaction";
inline constexpr char kCosmosProfile[] = "XR_HTC_vive_cosmos_controller_interaction";
inline constexpr char kFocus3Profile[] = "XR_HTC_vive_focus3_controller_interaction";
inline constexpr char kOdysseyProfile[] = "XR_EXT_samsung_odyssey_controller";
inline constexpr char kHpProfile[] = "XR_EXT_hp_mixed_reality_controller";
inline constexpr char kProntoProfile[] = "XR_KEST_pronto_controller_plus";

}  // namespace xr_input
