// From suggestions to bindings: what the application suggests for each profile, and what of it holds once the
// sets are attached to a session.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>

#include "xr/input/profiles.h"

namespace simulator {

struct Instance;

// Throws XR_ERROR_PATH_INVALID, and XR_ERROR_PATH_UNSUPPORTED for a profile that the instance is not offered.
const xr_input::Profile& CheckedProfile(const Instance& instance, XrPath path);

XRAPI_ATTR XrResult XRAPI_CALL SuggestInteractionProfileBindings(XrInstance instance,
                                                                 const XrInteractionProfileSuggestedBinding* suggested);
XRAPI_ATTR XrResult XRAPI_CALL AttachSessionActionSets(XrSession session, const XrSessionActionSetsAttachInfo* info);
XRAPI_ATTR XrResult XRAPI_CALL GetCurrentInteractionProfile(XrSession session, XrPath top_level_path,
                                                            XrInteractionProfileState* profile);
XRAPI_ATTR XrResult XRAPI_CALL EnumerateBoundSourcesForAction(XrSession session,
                                                              const XrBoundSourcesForActionEnumerateInfo* info,
                                                              std::uint32_t capacity, std::uint32_t* count,
                                                              XrPath* sources);
XRAPI_ATTR XrResult XRAPI_CALL GetInputSourceLocalizedName(XrSession session,
                                                           const XrInputSourceLocalizedNameGetInfo* info,
                                                           std::uint32_t capacity, std::uint32_t* count, char* buffer);

}  // namespace simulator
