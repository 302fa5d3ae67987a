// The KS spatial entity family: spaces that stand for things of the room, asked for by queries and answered
// by events. The installed OpenXR headers do not hold it, so it is declared here, with C layout, once for the
// layer and for the simulator. The static_asserts hold every size and offset that the runtime relies on.
#pragma once

#include <openxr/openxr.h>

#include <cstddef>

inline constexpr XrStructureType XR_TYPE_SPACE_QUERY_INFO_KS = static_cast<XrStructureType>(1000156001);
inline constexpr XrStructureType XR_TYPE_SPACE_QUERY_RESULTS_KS = static_cast<XrStructureType>(1000156002);
inline constexpr XrStructureType XR_TYPE_SPACE_STORAGE_LOCATION_FILTER_INFO_KS =
    static_cast<XrStructureType>(1000156003);
inline constexpr XrStructureType XR_TYPE_SPACE_COMPONENT_FILTER_INFO_KS = static_cast<XrStructureType>(1000156052);
inline constexpr XrStructureType XR_TYPE_SPACE_UUID_FILTER_INFO_KS = static_cast<XrStructureType>(1000156054);
inline constexpr XrStructureType XR_TYPE_SPACE_COMPONENT_STATUS_KS = static_cast<XrStructureType>(1000113001);
inline constexpr XrStructureType XR_TYPE_SPACE_COMPONENT_STATUS_SET_INFO_KS = static_cast<XrStructureType>(1000113007);
inline constexpr XrStructureType XR_TYPE_SPACE_CONTAINER_KS = static_cast<XrStructureType>(1000199000);
inline constexpr XrStructureType XR_TYPE_SEMANTIC_LABELS_KS = static_cast<XrStructureType>(1000175000);
inline constexpr XrStructureType XR_TYPE_EVENT_DATA_SPACE_QUERY_RESULTS_AVAILABLE_KS =
    static_cast<XrStructureType>(1000156103);
inline constexpr XrStructureType XR_TYPE_EVENT_DATA_SPACE_QUERY_COMPLETE_KS = static_cast<XrStructureType>(1000156104);
inline constexpr XrStructureType XR_TYPE_EVENT_DATA_SPACE_SET_STATUS_COMPLETE_KS =
    static_cast<XrStructureType>(1000113006);

XR_DEFINE_ATOM(XrAsyncRequestIdKS)

// Plain integers and not enums: what a runtime writes there may be a value that this list does not hold.
using XrSpaceComponentTypeKS = std::int32_t;
inline constexpr XrSpaceComponentTypeKS XR_SPACE_COMPONENT_TYPE_LOCATABLE_KS = 0;
inline constexpr XrSpaceComponentTypeKS XR_SPACE_COMPONENT_TYPE_STORABLE_KS = 1;
inline constexpr XrSpaceComponentTypeKS XR_SPACE_COMPONENT_TYPE_SHARABLE_KS = 2;
inline constexpr XrSpaceComponentTypeKS XR_SPACE_COMPONENT_TYPE_BOUNDED_2D_KS = 3;
inline constexpr XrSpaceComponentTypeKS XR_SPACE_COMPONENT_TYPE_BOUNDED_3D_KS = 4;
inline constexpr XrSpaceComponentTypeKS XR_SPACE_COMPONENT_TYPE_SEMANTIC_LABELS_KS = 5;
inline constexpr XrSpaceComponentTypeKS XR_SPACE_COMPONENT_TYPE_ROOM_LAYOUT_KS = 6;
inline constexpr XrSpaceComponentTypeKS XR_SPACE_COMPONENT_TYPE_SPACE_CONTAINER_KS = 7;

using XrSpaceQueryActionKS = std::int32_t;
inline constexpr XrSpaceQueryActionKS XR_SPACE_QUERY_ACTION_LOAD_KS = 0;

using XrSpaceStorageLocationKS = std::int32_t;
inline constexpr XrSpaceStorageLocationKS XR_SPACE_STORAGE_LOCATION_LOCAL_KS = 1;

struct XrSpaceFilterInfoBaseHeaderKS {
    XrStructureType type;
    const void* next;
};

struct XrSpaceQueryInfoBaseHeaderKS {
    XrStructureType type;
    const void* next;
};

struct XrSpaceQueryInfoKS {
    XrStructureType type;
    const void* next;
    XrSpaceQueryActionKS queryAction;
    std::uint32_t maxResultCount;
    XrDuration timeout;
    const XrSpaceFilterInfoBaseHeaderKS* filter;
    const XrSpaceFilterInfoBaseHeaderKS* excludeFilter;
};
static_assert(sizeof(XrSpaceQueryInfoKS) == 48 && offsetof(XrSpaceQueryInfoKS, queryAction) == 16 &&
              offsetof(XrSpaceQueryInfoKS, maxResultCount) == 20 && offsetof(XrSpaceQueryInfoKS, timeout) == 24 &&
              offsetof(XrSpaceQueryInfoKS, filter) == 32 && offsetof(XrSpaceQueryInfoKS, excludeFilter) == 40);

struct XrSpaceQueryResultKS {
    XrSpace space;
    XrUuidEXT uuid;
};
static_assert(sizeof(XrSpaceQueryResultKS) == 24 && offsetof(XrSpaceQueryResultKS, space) == 0 &&
              offsetof(XrSpaceQueryResultKS, uuid) == 8);

struct XrSpaceQueryResultsKS {
    XrStructureType type;
    void* next;
    std::uint32_t resultCapacityInput;
    std::uint32_t resultCountOutput;
    XrSpaceQueryResultKS* results;
};
static_assert(sizeof(XrSpaceQueryResultsKS) == 32 && offsetof(XrSpaceQueryResultsKS, resultCapacityInput) == 16 &&
              offsetof(XrSpaceQueryResultsKS, resultCountOutput) == 20 &&
              offsetof(XrSpaceQueryResultsKS, results) == 24);

struct XrSpaceStorageLocationFilterInfoKS {
    XrStructureType type;
    const void* next;
    XrSpaceStorageLocationKS location;
};
static_assert(sizeof(XrSpaceStorageLocationFilterInfoKS) == 24 &&
              offsetof(XrSpaceStorageLocationFilterInfoKS, location) == 16);

struct XrSpaceComponentFilterInfoKS {
    XrStructureType type;
    const void* next;
    XrSpaceComponentTypeKS componentType;
};
static_assert(sizeof(XrSpaceComponentFilterInfoKS) == 24 &&
              offsetof(XrSpaceComponentFilterInfoKS, componentType) == 16);

struct XrSpaceUuidFilterInfoKS {
    XrStructureType type;
    const void* next;
    std::uint32_t uuidCount;
    XrUuidEXT* uuids;
};
static_assert(sizeof(XrSpaceUuidFilterInfoKS) == 32 && offsetof(XrSpaceUuidFilterInfoKS, uuidCount) == 16 &&
              offsetof(XrSpaceUuidFilterInfoKS, uuids) == 24);

struct XrSpaceComponentStatusKS {
    XrStructureType type;
    void* next;
    XrBool32 enabled;
    XrBool32 changePending;
};
static_assert(sizeof(XrSpaceComponentStatusKS) == 24 && offsetof(XrSpaceComponentStatusKS, enabled) == 16 &&
              offsetof(XrSpaceComponentStatusKS, changePending) == 20);

struct XrSpaceComponentStatusSetInfoKS {
    XrStructureType type;
    const void* next;
    XrSpaceComponentTypeKS componentType;
    XrBool32 enabled;
    XrDuration timeout;
};
static_assert(sizeof(XrSpaceComponentStatusSetInfoKS) == 32 &&
              offsetof(XrSpaceComponentStatusSetInfoKS, componentType) == 16 &&
              offsetof(XrSpaceComponentStatusSetInfoKS, enabled) == 20 &&
              offsetof(XrSpaceComponentStatusSetInfoKS, timeout) == 24);

struct XrSpaceContainerKS {
    XrStructureType type;
    void* next;
    std::uint32_t uuidCapacityInput;
    std::uint32_t uuidCountOutput;
    XrUuidEXT* uuids;
};
static_assert(sizeof(XrSpaceContainerKS) == 32 && offsetof(XrSpaceContainerKS, uuidCapacityInput) == 16 &&
              offsetof(XrSpaceContainerKS, uuidCountOutput) == 20 && offsetof(XrSpaceContainerKS, uuids) == 24);

struct XrSemanticLabelsKS {
    XrStructureType type;
    void* next;
    std::uint32_t bufferCapacityInput;
    std::uint32_t bufferCountOutput;
    char* buffer;
};
static_assert(sizeof(XrSemanticLabelsKS) == 32 && offsetof(XrSemanticLabelsKS, bufferCapacityInput) == 16 &&
              offsetof(XrSemanticLabelsKS, bufferCountOutput) == 20 && offsetof(XrSemanticLabelsKS, buffer) == 24);

struct XrEventDataSpaceQueryResultsAvailableKS {
    XrStructureType type;
    const void* next;
    XrAsyncRequestIdKS requestId;
};
static_assert(sizeof(XrEventDataSpaceQueryResultsAvailableKS) == 24 &&
              offsetof(XrEventDataSpaceQueryResultsAvailableKS, requestId) == 16);

struct XrEventDataSpaceQueryCompleteKS {
    XrStructureType type;
    const void* next;
    XrAsyncRequestIdKS requestId;
    XrResult result;
};
static_assert(sizeof(XrEventDataSpaceQueryCompleteKS) == 32 &&
              offsetof(XrEventDataSpaceQueryCompleteKS, requestId) == 16 &&
              offsetof(XrEventDataSpaceQueryCompleteKS, result) == 24);

struct XrEventDataSpaceSetStatusCompleteKS {
    XrStructureType type;
    const void* next;
    XrAsyncRequestIdKS requestId;
    XrResult result;
    XrSpace space;
    XrUuidEXT uuid;
    XrSpaceComponentTypeKS componentType;
    XrBool32 enabled;
};
static_assert(sizeof(XrEventDataSpaceSetStatusCompleteKS) == 64 &&
              offsetof(XrEventDataSpaceSetStatusCompleteKS, requestId) == 16 &&
              offsetof(XrEventDataSpaceSetStatusCompleteKS, result) == 24 &&
              offsetof(XrEventDataSpaceSetStatusCompleteKS, space) == 32 &&
              offsetof(XrEventDataSpaceSetStatusCompleteKS, uuid) == 40 &&
              offsetof(XrEventDataSpaceSetStatusCompleteKS, componentType) == 56 &&
              offsetof(XrEventDataSpaceSetStatusCompleteKS, enabled) == 60);

struct XrOffset3DfKS {
    float x;
    float y;
    float z;
};

struct XrExtent3DfKS {
    float width;
    float height;
    float depth;
};

struct XrRect3DfKS {
    XrOffset3DfKS offset;
    XrExtent3DfKS extent;
};
static_assert(sizeof(XrRect3DfKS) == 24 && offsetof(XrRect3DfKS, extent) == 12);

using PFN_xrQuerySpacesKS = XrResult(XRAPI_PTR*)(XrSession session, const XrSpaceQueryInfoBaseHeaderKS* info,
                                                 XrAsyncRequestIdKS* requestId);
using PFN_xrRetrieveSpaceQueryResultsKS = XrResult(XRAPI_PTR*)(XrSession session, XrAsyncRequestIdKS requestId,
                                                               XrSpaceQueryResultsKS* results);
using PFN_xrGetSpaceComponentStatusKS = XrResult(XRAPI_PTR*)(XrSpace space, XrSpaceComponentTypeKS componentType,
                                                             XrSpaceComponentStatusKS* status);
using PFN_xrSetSpaceComponentStatusKS = XrResult(XRAPI_PTR*)(XrSpace space, const XrSpaceComponentStatusSetInfoKS* info,
                                                             XrAsyncRequestIdKS* requestId);
using PFN_xrEnumerateSpaceSupportedComponentsKS = XrResult(XRAPI_PTR*)(XrSpace space,
                                                                       std::uint32_t componentTypeCapacityInput,
                                                                       std::uint32_t* componentTypeCountOutput,
                                                                       XrSpaceComponentTypeKS* componentTypes);
using PFN_xrGetSpaceBoundingBox2DKS = XrResult(XRAPI_PTR*)(XrSession session, XrSpace space, XrRect2Df* boundingBox);
using PFN_xrGetSpaceBoundingBox3DKS = XrResult(XRAPI_PTR*)(XrSession session, XrSpace space, XrRect3DfKS* boundingBox);
using PFN_xrGetSpaceSemanticLabelsKS = XrResult(XRAPI_PTR*)(XrSession session, XrSpace space,
                                                            XrSemanticLabelsKS* labels);
using PFN_xrGetSpaceContainerKS = XrResult(XRAPI_PTR*)(XrSession session, XrSpace space, XrSpaceContainerKS* container);
