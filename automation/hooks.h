// The functions that stand in the way of the application's calls, and how they are found. Each takes what the OpenXR
// function of its name takes.
#pragma once

#include <openxr/openxr.h>

#include "automation/next_functions.h"
#include "xr/simulator_capture_records.h"

namespace automation {

// instance_hooks.cpp
XRAPI_ATTR XrResult XRAPI_CALL DestroyInstance(XrInstance instance);
XRAPI_ATTR XrResult XRAPI_CALL PollEvent(XrInstance instance, XrEventDataBuffer* event);

// session_hooks.cpp
XRAPI_ATTR XrResult XRAPI_CALL CreateVulkanInstanceKHR(XrInstance instance, const XrVulkanInstanceCreateInfoKHR* info,
                                                       VkInstance_T** created, std::int32_t* result);
XRAPI_ATTR XrResult XRAPI_CALL CreateSession(XrInstance instance, const XrSessionCreateInfo* info, XrSession* session);
XRAPI_ATTR XrResult XRAPI_CALL DestroySession(XrSession session);
XRAPI_ATTR XrResult XRAPI_CALL BeginSession(XrSession session, const XrSessionBeginInfo* info);
XRAPI_ATTR XrResult XRAPI_CALL EndSession(XrSession session);

// frame_hooks.cpp
XRAPI_ATTR XrResult XRAPI_CALL WaitFrame(XrSession session, const XrFrameWaitInfo* info, XrFrameState* state);
XRAPI_ATTR XrResult XRAPI_CALL BeginFrame(XrSession session, const XrFrameBeginInfo* info);
XRAPI_ATTR XrResult XRAPI_CALL EndFrame(XrSession session, const XrFrameEndInfo* info);

// space_hooks.cpp
XRAPI_ATTR XrResult XRAPI_CALL CreateReferenceSpace(XrSession session, const XrReferenceSpaceCreateInfo* info,
                                                    XrSpace* space);
XRAPI_ATTR XrResult XRAPI_CALL CreateActionSpace(XrSession session, const XrActionSpaceCreateInfo* info,
                                                 XrSpace* space);
XRAPI_ATTR XrResult XRAPI_CALL DestroySpace(XrSpace space);
XRAPI_ATTR XrResult XRAPI_CALL LocateSpace(XrSpace space, XrSpace base, XrTime time, XrSpaceLocation* location);
XRAPI_ATTR XrResult XRAPI_CALL LocateSpaces(XrSession session, const XrSpacesLocateInfo* info,
                                            XrSpaceLocations* locations);
XRAPI_ATTR XrResult XRAPI_CALL LocateSpacesKHR(XrSession session, const XrSpacesLocateInfo* info,
                                               XrSpaceLocations* locations);
XRAPI_ATTR XrResult XRAPI_CALL LocateViews(XrSession session, const XrViewLocateInfo* info, XrViewState* state,
                                           std::uint32_t capacity, std::uint32_t* count, XrView* views);

// action_hooks.cpp
XRAPI_ATTR XrResult XRAPI_CALL CreateActionSet(XrInstance instance, const XrActionSetCreateInfo* info,
                                               XrActionSet* action_set);
XRAPI_ATTR XrResult XRAPI_CALL DestroyActionSet(XrActionSet action_set);
XRAPI_ATTR XrResult XRAPI_CALL CreateAction(XrActionSet action_set, const XrActionCreateInfo* info, XrAction* action);
XRAPI_ATTR XrResult XRAPI_CALL DestroyAction(XrAction action);
XRAPI_ATTR XrResult XRAPI_CALL SuggestInteractionProfileBindings(XrInstance instance,
                                                                 const XrInteractionProfileSuggestedBinding* suggested);
XRAPI_ATTR XrResult XRAPI_CALL AttachSessionActionSets(XrSession session, const XrSessionActionSetsAttachInfo* info);

// input_hooks.cpp
XRAPI_ATTR XrResult XRAPI_CALL SyncActions(XrSession session, const XrActionsSyncInfo* info);
XRAPI_ATTR XrResult XRAPI_CALL GetActionStateBoolean(XrSession session, const XrActionStateGetInfo* info,
                                                     XrActionStateBoolean* state);
XRAPI_ATTR XrResult XRAPI_CALL GetActionStateFloat(XrSession session, const XrActionStateGetInfo* info,
                                                   XrActionStateFloat* state);
XRAPI_ATTR XrResult XRAPI_CALL GetActionStateVector2f(XrSession session, const XrActionStateGetInfo* info,
                                                      XrActionStateVector2f* state);
XRAPI_ATTR XrResult XRAPI_CALL GetActionStatePose(XrSession session, const XrActionStateGetInfo* info,
                                                  XrActionStatePose* state);
XRAPI_ATTR XrResult XRAPI_CALL GetCurrentInteractionProfile(XrSession session, XrPath top_level_path,
                                                            XrInteractionProfileState* profile);

// source_hooks.cpp
XRAPI_ATTR XrResult XRAPI_CALL EnumerateBoundSourcesForAction(XrSession session,
                                                              const XrBoundSourcesForActionEnumerateInfo* info,
                                                              std::uint32_t capacity, std::uint32_t* count,
                                                              XrPath* sources);
XRAPI_ATTR XrResult XRAPI_CALL GetInputSourceLocalizedName(XrSession session,
                                                           const XrInputSourceLocalizedNameGetInfo* info,
                                                           std::uint32_t capacity, std::uint32_t* count, char* buffer);

// haptic_hooks.cpp
XRAPI_ATTR XrResult XRAPI_CALL ApplyHapticFeedback(XrSession session, const XrHapticActionInfo* info,
                                                   const XrHapticBaseHeader* feedback);
XRAPI_ATTR XrResult XRAPI_CALL StopHapticFeedback(XrSession session, const XrHapticActionInfo* info);

// swapchain_hooks.cpp
XRAPI_ATTR XrResult XRAPI_CALL CreateSwapchain(XrSession session, const XrSwapchainCreateInfo* info,
                                               XrSwapchain* swapchain);
XRAPI_ATTR XrResult XRAPI_CALL DestroySwapchain(XrSwapchain swapchain);
XRAPI_ATTR XrResult XRAPI_CALL AcquireSwapchainImage(XrSwapchain swapchain, const XrSwapchainImageAcquireInfo* info,
                                                     std::uint32_t* index);
XRAPI_ATTR XrResult XRAPI_CALL WaitSwapchainImage(XrSwapchain swapchain, const XrSwapchainImageWaitInfo* info);
XRAPI_ATTR XrResult XRAPI_CALL ReleaseSwapchainImage(XrSwapchain swapchain, const XrSwapchainImageReleaseInfo* info);

// capture_calls.cpp: the extension XR_KESTX1_simulator_compositor_output_capture
XRAPI_ATTR XrResult XRAPI_CALL StartSimulatorCompositorOutputCaptureKESTX1(XrSession session, std::uint32_t eyes);
XRAPI_ATTR XrResult XRAPI_CALL StopSimulatorCompositorOutputCaptureKESTX1(XrSession session);
XRAPI_ATTR XrResult XRAPI_CALL CaptureSimulatorCompositorOutputKESTX1(XrSession session,
                                                                      orvanic_xr::SimulatorCompositorCaptureInfo* info);

// device_calls.cpp: the extension XR_EXT_conformance_automation
XRAPI_ATTR XrResult XRAPI_CALL SetInputDeviceActiveEXT(XrSession session, XrPath interaction_profile,
                                                       XrPath top_level_path, XrBool32 is_active);
XRAPI_ATTR XrResult XRAPI_CALL SetInputDeviceStateBoolEXT(XrSession session, XrPath top_level_path,
                                                          XrPath input_source_path, XrBool32 state);
XRAPI_ATTR XrResult XRAPI_CALL SetInputDeviceStateFloatEXT(XrSession session, XrPath top_level_path,
                                                           XrPath input_source_path, float state);
XRAPI_ATTR XrResult XRAPI_CALL SetInputDeviceStateVector2fEXT(XrSession session, XrPath top_level_path,
                                                              XrPath input_source_path, XrVector2f state);
XRAPI_ATTR XrResult XRAPI_CALL SetInputDeviceLocationEXT(XrSession session, XrPath top_level_path,
                                                         XrPath input_source_path, XrSpace space, XrPosef pose);

}  // namespace automation
