// The hooks that let the layer's own action set ride along with the application's: its bindings are suggested,
// its set is attached and synced. What the application passes is copied and widened; whatever stands in the way
// of that is logged, and the call goes down as it came.
#pragma once

#include <openxr/openxr.h>

namespace orvanic_xr {

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrSuggestInteractionProfileBindings(
    XrInstance instance, const XrInteractionProfileSuggestedBinding* suggestedBindings);

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrAttachSessionActionSets(XrSession session,
                                                                     const XrSessionActionSetsAttachInfo* attachInfo);

// On the frame path; allocates nothing for an application with a usual number of action sets.
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrSyncActions(XrSession session, const XrActionsSyncInfo* syncInfo);

}  // namespace orvanic_xr
