// Walks the application's scene anchors once a session, so that the list of the room's things can be answered
// at once. The query is asynchronous: it starts when the session is created, and only the events that the
// application's own xrPollEvent brings in drive it on. There is no timeout and no retry: a query that failed,
// hung or never started looks the same from outside.
//
// on_event runs on the application's polling thread. Tools read from other threads, and only once is_ready:
// the state turns Complete last, and after that nothing writes the entities any more.
#pragma once

#include <openxr/openxr.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "context/session_context.h"
#include "layer/dispatch/dispatch.h"
#include "xr/spatial_entity_ks.h"

namespace orvanic_xr {

enum SceneQueryState : std::int32_t {
    NotStarted = 0,              // for good, if the session or the functions are missing
    QueryingContainers = 1,      // first query: the containers, and the spaces that are none
    QueryingRemainingUuids = 2,  // second query: what the containers name
    WaitingForComponents = 3,    // requests for the locatable component may be pending
    Complete = 4,
    Failed = 5,  // the first query could not be started
};

struct SceneEntity {
    XrSpace space = XR_NULL_HANDLE;  // owned by the session's context
    std::string semantic_label;      // as the runtime gives it, empty if it gave none
    std::string name;                // unique: the label, or "UNKNOWN", and a number
    std::optional<XrRect2Df> bounding_box_2d;
    std::optional<XrRect3DfKS> bounding_box_3d;
};

class SceneContext {
 public:
    // Starts the query, for a session that has its SessionContext. A null session makes a stand-by context, which
    // does nothing.
    explicit SceneContext(XrSession session);
    ~SceneContext();
    SceneContext(const SceneContext&) = delete;
    SceneContext& operator=(const SceneContext&) = delete;

    bool is_ready() const { return state_.load(std::memory_order_acquire) == Complete; }
    SceneQueryState state() const { return state_.load(std::memory_order_acquire); }
    // By UUID text, in the map's order. Once is_ready only.
    const std::unordered_map<std::string, SceneEntity>& entities() const { return entities_; }

    void on_event(const XrEventDataBuffer& event);

 private:
    struct Functions {
        PFN_xrQuerySpacesKS query_spaces = nullptr;
        PFN_xrRetrieveSpaceQueryResultsKS retrieve_results = nullptr;
        PFN_xrGetSpaceComponentStatusKS get_component_status = nullptr;
        PFN_xrSetSpaceComponentStatusKS set_component_status = nullptr;
        PFN_xrEnumerateSpaceSupportedComponentsKS enumerate_components = nullptr;
        PFN_xrGetSpaceBoundingBox2DKS get_bounding_box_2d = nullptr;
        PFN_xrGetSpaceBoundingBox3DKS get_bounding_box_3d = nullptr;
        PFN_xrGetSpaceSemanticLabelsKS get_semantic_labels = nullptr;
        PFN_xrGetSpaceContainerKS get_container = nullptr;
        PFN_xrDestroySpace destroy_space = nullptr;  // with which the session's context destroys what is found

        static Functions FromNextLayer();
        bool complete() const;
    };

    void StartContainerQuery();
    bool StartRemainingQuery(std::vector<XrUuidEXT> uuids);
    void ProcessResults(XrAsyncRequestIdKS request);
    std::optional<std::vector<XrSpaceQueryResultKS>> RetrieveResults(XrAsyncRequestIdKS request) const;
    // True if the space is a container; then its UUIDs went into `uuids`.
    bool CollectContainer(XrSpace space, std::vector<XrUuidEXT>& uuids) const;
    void AddEntity(const XrSpaceQueryResultKS& result);
    std::string ReadLabel(XrSpace space) const;
    bool SupportsLocatable(XrSpace space) const;
    void RequestLocatable(XrSpace space);
    void FinishIfNothingIsPending();

    std::atomic<SceneQueryState> state_ = NotStarted;
    Functions next_;
    std::shared_ptr<SessionContext> context_;  // of the session, which ends what is called here
    std::optional<XrAsyncRequestIdKS> container_request_;
    std::optional<XrAsyncRequestIdKS> remaining_request_;
    std::unordered_set<XrAsyncRequestIdKS> pending_locatable_requests_;
    XrSession session_ = XR_NULL_HANDLE;
    std::unordered_map<std::string, SceneEntity> entities_;
    std::unordered_map<std::string, std::uint32_t> label_counts_;
};

// How ContextManager makes the context of a session.
std::shared_ptr<SceneContext> MakeSceneContext(XrSession session);

// Upper-case hexadecimal in the pattern 8-4-4-4-12.
std::string UuidText(const XrUuidEXT& uuid);

}  // namespace orvanic_xr
