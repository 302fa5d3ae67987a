// Queries: which things match, and their spaces once the event has told that they are there.
#include <cstring>

#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/scene.h"
#include "simulator/session.h"
#include "simulator/spaces.h"

namespace simulator {
namespace {

constexpr std::size_t kMaxOpenQueries = 256;
constexpr int kMaxChainedFilters = 8;
// A request that was never handed out.

bool SameUuid(const XrUuidEXT& a, const XrUuidEXT& b) {
    return std::memcmp(a.data, b.data, sizeof(a.data)) == 0;
}

bool HasComponent(const Scene& scene, std::size_t index, XrSpaceComponentTypeKS type) {
    const Thing& thing = scene.things[index];
    switch (type) {
        case XR_SPACE_COMPONENT_TYPE_LOCATABLE_KS:
            return !thing.IsContainer() && scene.locatable[index].IsEnabled(Now());
        case XR_SPACE_COMPONENT_TYPE_STORABLE_KS:
            return true;
        case XR_SPACE_COMPONENT_TYPE_BOUNDED_2D_KS:
            return thing.surface.has_value();
        case XR_SPACE_COMPONENT_TYPE_BOUNDED_3D_KS:
            return thing.body.has_value();
        case XR_SPACE_COMPONENT_TYPE_SEMANTIC_LABELS_KS:
            return !thing.label.empty();
        case XR_SPACE_COMPONENT_TYPE_SPACE_CONTAINER_KS:
            return thing.IsContainer();
        default:
            return false;
    }
}

bool MatchesOne(const Scene& scene, std::size_t index, const XrSpaceFilterInfoBaseHeaderKS& filter) {
    if (filter.type == XR_TYPE_SPACE_STORAGE_LOCATION_FILTER_INFO_KS) {
        const auto& stored = reinterpret_cast<const XrSpaceStorageLocationFilterInfoKS&>(filter);
        Require(stored.location == XR_SPACE_STORAGE_LOCATION_LOCAL_KS);
        return true;
    }
    if (filter.type == XR_TYPE_SPACE_COMPONENT_FILTER_INFO_KS) {
        return HasComponent(scene, index, reinterpret_cast<const XrSpaceComponentFilterInfoKS&>(filter).componentType);
    }
    if (filter.type == XR_TYPE_SPACE_UUID_FILTER_INFO_KS) {
        const auto& named = reinterpret_cast<const XrSpaceUuidFilterInfoKS&>(filter);
        Require(named.uuidCount > 0 && named.uuids);
        return std::any_of(named.uuids, named.uuids + named.uuidCount,
                           [&](const XrUuidEXT& uuid) { return SameUuid(uuid, scene.things[index].uuid); });
    }
    Refuse(XR_ERROR_VALIDATION_FAILURE);
}

// Every filter of the chain has its say.
bool Matches(const Scene& scene, std::size_t index, const XrSpaceFilterInfoBaseHeaderKS* filter) {
    bool matches = true;
    for (int links = 0; filter; ++links) {
        Require(links < kMaxChainedFilters);
        matches = MatchesOne(scene, index, *filter) && matches;
        filter = static_cast<const XrSpaceFilterInfoBaseHeaderKS*>(filter->next);
    }
    return matches;
}

std::vector<std::size_t> Find(const Scene& scene, const XrSpaceQueryInfoKS& info) {
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < scene.things.size(); ++i) {
        const bool wanted = Matches(scene, i, info.filter);
        const bool unwanted = info.excludeFilter && Matches(scene, i, info.excludeFilter);
        if (wanted && !unwanted && found.size() < info.maxResultCount) found.push_back(i);
    }
    return found;
}

}  // namespace

XrResult QuerySpacesKS(XrSession session, const XrSpaceQueryInfoBaseHeaderKS* info, XrAsyncRequestIdKS* request) {
    return Guarded([&](Runtime& runtime) {
        Session& owner = *runtime.Get(session);
        RequireType(info, XR_TYPE_SPACE_QUERY_INFO_KS);
        const auto& query = reinterpret_cast<const XrSpaceQueryInfoKS&>(*info);
        Require(request && query.queryAction == XR_SPACE_QUERY_ACTION_LOAD_KS && query.maxResultCount > 0 &&
                query.timeout >= 0);
        Scene& scene = owner.scene;
        if (scene.results.size() >= kMaxOpenQueries) Refuse(XR_ERROR_LIMIT_REACHED);
        const XrTime available = Now() + owner.frames.period();
        auto found = Find(scene, query);
        *request = ++scene.last_request;
        scene.results[*request] = {std::move(found), available};

        EventQueue& events = owner.instance->events;
        events.Push(XrEventDataSpaceQueryResultsAvailableKS{XR_TYPE_EVENT_DATA_SPACE_QUERY_RESULTS_AVAILABLE_KS,
                                                            nullptr, *request},
                    available);
        events.Push(
            XrEventDataSpaceQueryCompleteKS{XR_TYPE_EVENT_DATA_SPACE_QUERY_COMPLETE_KS, nullptr, *request, XR_SUCCESS},
            available);
        return XR_SUCCESS;
    });
}

// The call that takes the results closes the query; asking for their number leaves it open.
XrResult RetrieveSpaceQueryResultsKS(XrSession session, XrAsyncRequestIdKS request, XrSpaceQueryResultsKS* results) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(results, XR_TYPE_SPACE_QUERY_RESULTS_KS);
        const auto open = owner->scene.results.find(request);
        Require(open != owner->scene.results.end());
        if (Now() < open->second.available) Refuse(XR_ERROR_CALL_ORDER_INVALID);
        const std::vector<std::size_t>& found = open->second.things;
        const XrResult result = WriteElements(
            found.size(), results->resultCapacityInput, &results->resultCountOutput, results->results,
            [&](std::size_t i) {
                auto space = std::make_shared<Space>();
                space->kind = Space::Kind::kThing;
                space->session = owner;
                space->thing = found[i];
                results->results[i] = {runtime.Add<XrSpace>(std::move(space)), owner->scene.things[found[i]].uuid};
            });
        if (XR_SUCCEEDED(result) && results->resultCapacityInput > 0) owner->scene.results.erase(open);
        return result;
    });
}

}  // namespace simulator
