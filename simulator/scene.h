// The KS spatial entity family: queries for the things of the room, answered by events, and what each thing
// can tell of itself once it has a space.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <map>
#include <vector>

#include "simulator/room.h"
#include "simulator/settings.h"
#include "xr/spatial_entity_ks.h"

namespace simulator {

// Whether a thing can be located: not at first, but it can be asked for, and takes a while.
struct Locatable {
    bool IsEnabled(XrTime now) const { return now >= settles ? wanted : enabled; }
    bool IsPending(XrTime now) const { return now < settles; }

    bool enabled = false;
    // What holds from `settles` on.
    bool wanted = false;
    XrTime settles = 0;
};

struct Scene {
    explicit Scene(SceneMode scene_mode = SceneMode::kFurnished);

    struct Results {
        std::vector<std::size_t> things;
        XrTime available;
    };

    std::vector<Thing> things;
    // One for each thing.
    std::vector<Locatable> locatable;
    std::map<XrAsyncRequestIdKS, Results> results;
    XrAsyncRequestIdKS last_request = 0;
};

XRAPI_ATTR XrResult XRAPI_CALL QuerySpacesKS(XrSession session, const XrSpaceQueryInfoBaseHeaderKS* info,
                                             XrAsyncRequestIdKS* request);
XRAPI_ATTR XrResult XRAPI_CALL RetrieveSpaceQueryResultsKS(XrSession session, XrAsyncRequestIdKS request,
                                                           XrSpaceQueryResultsKS* results);
XRAPI_ATTR XrResult XRAPI_CALL GetSpaceComponentStatusKS(XrSpace space, XrSpaceComponentTypeKS type,
                                                         XrSpaceComponentStatusKS* status);
XRAPI_ATTR XrResult XRAPI_CALL SetSpaceComponentStatusKS(XrSpace space, const XrSpaceComponentStatusSetInfoKS* info,
                                                         XrAsyncRequestIdKS* request);
XRAPI_ATTR XrResult XRAPI_CALL EnumerateSpaceSupportedComponentsKS(XrSpace space, std::uint32_t capacity,
                                                                   std::uint32_t* count, XrSpaceComponentTypeKS* types);
XRAPI_ATTR XrResult XRAPI_CALL GetSpaceBoundingBox2DKS(XrSession session, XrSpace space, XrRect2Df* box);
XRAPI_ATTR XrResult XRAPI_CALL GetSpaceBoundingBox3DKS(XrSession session, XrSpace space, XrRect3DfKS* box);
XRAPI_ATTR XrResult XRAPI_CALL GetSpaceSemanticLabelsKS(XrSession session, XrSpace space, XrSemanticLabelsKS* labels);
XRAPI_ATTR XrResult XRAPI_CALL GetSpaceContainerKS(XrSession session, XrSpace space, XrSpaceContainerKS* container);

}  // namespace simulator
