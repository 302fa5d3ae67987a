// The interaction profiles as OpenXR lists them: those of 1.0, those that 1.1 took in, and those of extensions.
#pragma once

#include <openxr/openxr.h>

#include <limits>
#include <string_view>

#include "xr/input/extensions.h"

namespace xr_input {

inline constexpr XrVersion kNoVersion = std::numeric_limits<XrVersion>::max();

// Sources are words with blanks between. "x/click,touch" are two; "thumbstick" is one of two axes, which stand beside
// it as ".../x" and ".../y"; '+' marks what came with 1.1. A word begins behind "input/", unless it says "output/".
// Whatever a hand holds has grip and aim poses besides, and grip_surface with 1.1.
struct SourceWords {
    std::string_view left = {};
    std::string_view right = {};
    std::string_view both = {};
    std::string_view head = {};
    std::string_view gamepad = {};
};

struct ProfileRow {
    // Behind "/interaction_profiles/".
    std::string_view path;
    // What a user would call the device.
    std::string_view name;
    // The first version of OpenXR that has it in its core.
    XrVersion since;
    // That brings it before; or null.
    const char* extension;
    SourceWords sources;
};

inline constexpr ProfileRow kProfileRows[] = {
    {"khr/simple_controller",
     "Simple Controller",
     kVersion10,
     nullptr,
     {.both = "select/click menu/click output/haptic"}},
    {"google/daydream_controller",
     "Daydream Controller",
     kVersion10,
     nullptr,
     {.both = "select/click trackpad trackpad/click,touch"}},
    {"htc/vive_controller",
     "Vive Controller",
     kVersion10,
     nullptr,
     {.both = "system/click squeeze/click menu/click trigger/click,value trackpad trackpad/click,touch output/haptic"}},
    {"htc/vive_pro",
     "Vive Pro",
     kVersion10,
     nullptr,
     {.head = "system/click volume_up/click volume_down/click mute_mic/click"}},
    {"microsoft/motion_controller",
     "Motion Controller",
     kVersion10,
     nullptr,
     {.both = "menu/click squeeze/click trigger/value thumbstick thumbstick/click trackpad trackpad/click,touch "
              "output/haptic"}},
    {"microsoft/xbox_controller",
     "Xbox Controller",
     kVersion10,
     nullptr,
     {.gamepad = "menu/click view/click a/click b/click x/click y/click dpad_down/click dpad_right/click dpad_up/click "
                 "dpad_left/click shoulder_left/click shoulder_right/click trigger_left/value trigger_right/value "
                 "thumbstick_left thumbstick_left/click thumbstick_right thumbstick_right/click output/haptic_left "
                 "output/haptic_right output/haptic_left_trigger output/haptic_right_trigger"}},
    {"oculus/go_controller",
     "Go Controller",
     kVersion10,
     nullptr,
     {.both = "system/click trigger/click back/click trackpad trackpad/click,touch"}},
    {"oculus/touch_controller",
     "Touch Controller",
     kVersion10,
     nullptr,
     {.left = "x/click,touch y/click,touch menu/click",
      .right = "a/click,touch b/click,touch system/click",
      .both = "squeeze/value trigger/value,touch thumbstick thumbstick/click,touch thumbrest/touch output/haptic "
              "+trigger/proximity +thumb_resting_surfaces/proximity"}},
    {"valve/index_controller",
     "Index Controller",
     kVersion10,
     nullptr,
     {.both = "system/click,touch a/click,touch b/click,touch squeeze/value,force trigger/click,value,touch thumbstick "
              "thumbstick/click,touch trackpad trackpad/force,touch output/haptic"}},

    {"ml/ml2_controller",
     "Magic Leap 2 Controller",
     kVersion11,
     kMl2Profile,
     {.both = "menu/click home/click trigger/click,value trackpad trackpad/click,force,touch shoulder/click "
              "output/haptic"}},
    {"bytedance/pico_neo3_controller",
     "PICO Neo3 Controller",
     kVersion11,
     kBdProfiles,
     {.left = "x/click,touch y/click,touch",
      .right = "a/click,touch b/click,touch",
      .both = "system/click menu/click squeeze/click,value trigger/click,touch,value thumbstick thumbstick/click,touch "
              "output/haptic"}},
    {"bytedance/pico4_controller",
     "PICO 4 Controller",
     kVersion11,
     kBdProfiles,
     {.left = "x/click,touch y/click,touch menu/click",
      .right = "a/click,touch b/click,touch",
      .both = "system/click squeeze/click,value trigger/click,touch,value thumbstick thumbstick/click,touch "
              "output/haptic"}},
    {"bytedance/pico_g3_controller",
     "PICO G3 Controller",
     kVersion11,
     kBdProfiles,
     {.both = "trigger/click,value menu/click thumbstick thumbstick/click"}},
    {"htc/vive_cosmos_controller",
     "Vive Cosmos Controller",
     kVersion11,
     kCosmosProfile,
     {.left = "x/click y/click menu/click",
      .right = "a/click b/click system/click",
      .both = "shoulder/click squeeze/click trigger/click,value thumbstick thumbstick/click,touch output/haptic"}},
    {"htc/vive_focus3_controller",
     "Vive Focus 3 Controller",
     kVersion11,
     kFocus3Profile,
     {.left = "x/click y/click menu/click",
      .right = "a/click b/click system/click",
      .both = "squeeze/click,touch,value trigger/click,touch,value thumbstick thumbstick/click,touch thumbrest/touch "
              "output/haptic"}},
    {"samsung/odyssey_controller",
     "Odyssey Controller",
     kVersion11,
     kOdysseyProfile,
     {.both = "menu/click squeeze/click trigger/value thumbstick thumbstick/click trackpad trackpad/click,touch "
              "output/haptic"}},
    {"hp/mixed_reality_controller",
     "HP Mixed Reality Controller",
     kVersion11,
     kHpProfile,
     {.left = "x/click y/click",
      .right = "a/click b/click",
      .both = "menu/click squeeze/value trigger/value thumbstick thumbstick/click output/haptic"}},
    {"meta/touch_pro_controller",
     "Touch Pro Controller",
     kVersion11,
     nullptr,
     {.left = "x/click,touch y/click,touch menu/click",
      .right = "a/click,touch b/click,touch system/click",
      .both = "squeeze/value trigger/value,touch,proximity thumbstick thumbstick/click,touch thumbrest/touch,force "
              "stylus/force thumb_resting_surfaces/proximity trigger_curl/value trigger_slide/value output/haptic "
              "output/haptic_trigger output/haptic_thumb"}},
    {"meta/touch_plus_controller",
     "Touch Plus Controller",
     kVersion11,
     nullptr,
     {.left = "x/click,touch y/click,touch menu/click",
      .right = "a/click,touch b/click,touch system/click",
      .both = "squeeze/value trigger/value,touch,proximity,force thumbstick thumbstick/click,touch thumbrest/touch "
              "thumb_resting_surfaces/proximity trigger_curl/value trigger_slide/value output/haptic"}},
    {"meta/touch_controller_rift_cv1",
     "Rift Controller",
     kVersion11,
     nullptr,
     {.left = "x/click,touch y/click,touch menu/click",
      .right = "a/click,touch b/click,touch system/click",
      .both = "squeeze/value trigger/value,touch,proximity thumb_resting_surfaces/proximity thumbstick "
              "thumbstick/click,touch thumbrest/touch output/haptic"}},
    {"meta/touch_controller_quest_1_rift_s",
     "Quest and Rift S Controller",
     kVersion11,
     nullptr,
     {.left = "x/click,touch y/click,touch menu/click",
      .right = "a/click,touch b/click,touch system/click",
      .both = "squeeze/value trigger/value,touch,proximity thumb_resting_surfaces/proximity thumbstick "
              "thumbstick/click,touch output/haptic"}},
    {"meta/touch_controller_quest_2",
     "Quest 2 Controller",
     kVersion11,
     nullptr,
     {.left = "x/click,touch y/click,touch menu/click",
      .right = "a/click,touch b/click,touch system/click",
      .both = "squeeze/value trigger/value,touch,proximity thumb_resting_surfaces/proximity thumbstick "
              "thumbstick/click,touch thumbrest/touch output/haptic"}},

    {"kest/pronto_controller_plus",
     "Pronto Controller Plus",
     kNoVersion,
     kProntoProfile,
     {.left = "x/click,touch y/click,touch menu/click",
      .right = "a/click,touch b/click,touch system/click",
      .both =
          "squeeze/value trigger/value,touch,proximity,force,curl_kest,slide_kest thumbstick thumbstick/click,touch "
          "thumbrest/touch output/haptic"}},
    {"kest/head_kestx2", "Headset", kNoVersion, kConformanceAutomation, {.head = "view_kest/pose"}},
};

}  // namespace xr_input
