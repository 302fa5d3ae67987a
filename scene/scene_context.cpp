#include "scene/scene_context.h"

#include <algorithm>
#include <utility>

#include "context/context_manager.h"
#include "diagnostics/logger.h"

namespace orvanic_xr {
namespace {

constexpr std::uint32_t kMaxContainers = 100;
constexpr std::uint32_t kMaxEntities = 1000;
// More than any runtime would name in one answer: a count beyond it is a lie that must not become an allocation.
constexpr std::uint32_t kMaxReportedCount = 1u << 20;

const XrSpaceStorageLocationFilterInfoKS kLocalStorage = {XR_TYPE_SPACE_STORAGE_LOCATION_FILTER_INFO_KS, nullptr,
                                                          XR_SPACE_STORAGE_LOCATION_LOCAL_KS};

XrSpaceQueryInfoKS QueryInfo(std::uint32_t max_results, const void* filter) {
    return {XR_TYPE_SPACE_QUERY_INFO_KS,
            nullptr,
            XR_SPACE_QUERY_ACTION_LOAD_KS,
            max_results,
            0,
            static_cast<const XrSpaceFilterInfoBaseHeaderKS*>(filter),
            nullptr};
}

const XrSpaceQueryInfoBaseHeaderKS* AsBase(const XrSpaceQueryInfoKS& info) {
    return reinterpret_cast<const XrSpaceQueryInfoBaseHeaderKS*>(&info);
}

template <typename... Parts>
std::string Joined(const Parts&... parts) {
    std::string text;
    (AppendLogPart(text, parts), ...);
    return text;
}

std::string EntityLine(const std::string& uuid, const SceneEntity& entity) {
    std::string line = Joined("Entity ", uuid, ": ", "name=\"", entity.name, "\" ");
    line += entity.semantic_label.empty() ? "label=<none> " : "label=\"" + entity.semantic_label + "\" ";
    if (const auto& box = entity.bounding_box_2d) {
        line += Joined("bbox2D=[offset:(", box->offset.x, ", ", box->offset.y, "), extent:(", box->extent.width, ", ",
                       box->extent.height, ")] ");
    }
    if (const auto& box = entity.bounding_box_3d) {
        line += Joined("bbox3D=[offset:(", box->offset.x, ", ", box->offset.y, ", ", box->offset.z, "), extent:(",
                       box->extent.width, ", ", box->extent.height, ", ", box->extent.depth, ")]");
    }
    return line;
}

}  // namespace

SceneContext::Functions SceneContext::Functions::FromNextLayer() {
    const DispatchHolder& next = DispatchHolder::instance();
    return {next.Slot(&NextDispatchTable::QuerySpacesKS),
            next.Slot(&NextDispatchTable::RetrieveSpaceQueryResultsKS),
            next.Slot(&NextDispatchTable::GetSpaceComponentStatusKS),
            next.Slot(&NextDispatchTable::SetSpaceComponentStatusKS),
            next.Slot(&NextDispatchTable::EnumerateSpaceSupportedComponentsKS),
            next.Slot(&NextDispatchTable::GetSpaceBoundingBox2DKS),
            next.Slot(&NextDispatchTable::GetSpaceBoundingBox3DKS),
            next.Slot(&NextDispatchTable::GetSpaceSemanticLabelsKS),
            next.Slot(&NextDispatchTable::GetSpaceContainerKS),
            next.Slot(&NextDispatchTable::DestroySpace)};
}

bool SceneContext::Functions::complete() const {
    return query_spaces && retrieve_results && get_component_status && set_component_status && enumerate_components &&
           get_bounding_box_2d && get_bounding_box_3d && get_semantic_labels && get_container && destroy_space;
}

SceneContext::SceneContext(XrSession session) : session_(session) {
    if (session_ == XR_NULL_HANDLE) return;
    context_ = ContextManager::instance().getSessionContext(session_);
    next_ = Functions::FromNextLayer();
    if (!next_.complete()) {
        LogWarning("Required scene query extensions not enabled. Is the application a mixed-reality one?");
        return;
    }
    LogInfo("SceneContext created, starting scene query");
    StartContainerQuery();
}

SceneContext::~SceneContext() {
    if (session_ != XR_NULL_HANDLE) LogInfo("SceneContext destroyed");
}

void SceneContext::StartContainerQuery() {
    state_ = QueryingContainers;
    const XrSpaceComponentFilterInfoKS containers = {XR_TYPE_SPACE_COMPONENT_FILTER_INFO_KS, &kLocalStorage,
                                                     XR_SPACE_COMPONENT_TYPE_SPACE_CONTAINER_KS};
    const XrSpaceQueryInfoKS query = QueryInfo(kMaxContainers, &containers);
    XrAsyncRequestIdKS request = 0;
    if (XR_SUCCEEDED(next_.query_spaces(session_, AsBase(query), &request))) {
        container_request_ = request;
        return;
    }
    LogWarning("Failed to start space container query");
    state_ = Failed;
}

bool SceneContext::StartRemainingQuery(std::vector<XrUuidEXT> uuids) {
    if (uuids.empty()) return false;
    const XrSpaceUuidFilterInfoKS named = {XR_TYPE_SPACE_UUID_FILTER_INFO_KS, &kLocalStorage,
                                           static_cast<std::uint32_t>(uuids.size()), uuids.data()};
    const XrSpaceQueryInfoKS query = QueryInfo(kMaxEntities, &named);
    XrAsyncRequestIdKS request = 0;
    if (XR_FAILED(next_.query_spaces(session_, AsBase(query), &request))) return false;
    remaining_request_ = request;
    return true;
}

void SceneContext::on_event(const XrEventDataBuffer& event) {
    // For all that one event leads to: the application may poll while another of its threads destroys the session.
    const auto pass = context_ ? context_->EnterRuntime() : SessionFence::Pass();
    if (!pass) return;
    if (event.type == XR_TYPE_EVENT_DATA_SPACE_SET_STATUS_COMPLETE_KS) {
        const auto& done = reinterpret_cast<const XrEventDataSpaceSetStatusCompleteKS&>(event);
        // On purpose: a request that failed stays, and then the query never completes.
        if (XR_FAILED(done.result) && pending_locatable_requests_.contains(done.requestId)) {
            LogWarning("A thing of the room can't be located, result: ", done.result,
                       ": the scene query will not complete");
        }
        if (done.result == XR_SUCCESS && done.componentType == XR_SPACE_COMPONENT_TYPE_LOCATABLE_KS) {
            pending_locatable_requests_.erase(done.requestId);
        }
    } else if (event.type == XR_TYPE_EVENT_DATA_SPACE_QUERY_RESULTS_AVAILABLE_KS) {
        const XrAsyncRequestIdKS request =
            reinterpret_cast<const XrEventDataSpaceQueryResultsAvailableKS&>(event).requestId;
        for (auto* awaited : {&container_request_, &remaining_request_}) {
            if (*awaited != request) continue;
            awaited->reset();
            ProcessResults(request);
            break;
        }
    }
    FinishIfNothingIsPending();
}

void SceneContext::FinishIfNothingIsPending() {
    if (state_ != WaitingForComponents || !pending_locatable_requests_.empty()) return;
    state_.store(Complete, std::memory_order_release);
    LogInfo("Scene query complete, found ", entities_.size(), " entities.");
    for (const auto& [uuid, entity] : entities_) LogInfo(EntityLine(uuid, entity));
}

void SceneContext::ProcessResults(XrAsyncRequestIdKS request) {
    const auto results = RetrieveResults(request);
    // On purpose: without results the query stays where it is, for nothing restarts it.
    if (!results) {
        LogWarning("Failed to retrieve scene query results: the query will not complete");
        return;
    }
    const bool first_query = state_ == QueryingContainers;
    std::vector<XrUuidEXT> contained;
    for (const XrSpaceQueryResultKS& result : *results) {
        if (first_query && CollectContainer(result.space, contained)) continue;
        AddEntity(result);
    }
    if (state_ == QueryingRemainingUuids) {
        state_ = WaitingForComponents;
    } else if (first_query) {
        state_ = QueryingRemainingUuids;
        if (StartRemainingQuery(std::move(contained))) return;
        LogWarning("Failed to start remaining UUIDs query");
        state_ = WaitingForComponents;
    }
}

std::optional<std::vector<XrSpaceQueryResultKS>> SceneContext::RetrieveResults(XrAsyncRequestIdKS request) const {
    XrSpaceQueryResultsKS query = {XR_TYPE_SPACE_QUERY_RESULTS_KS, nullptr, 0, 0, nullptr};
    if (XR_FAILED(next_.retrieve_results(session_, request, &query))) return std::nullopt;
    std::vector<XrSpaceQueryResultKS> results(std::min(query.resultCountOutput, kMaxReportedCount));
    query.resultCapacityInput = static_cast<std::uint32_t>(results.size());
    query.results = results.data();
    if (XR_FAILED(next_.retrieve_results(session_, request, &query))) return std::nullopt;
    results.resize(std::min<std::size_t>(query.resultCountOutput, results.size()));
    return results;
}

bool SceneContext::CollectContainer(XrSpace space, std::vector<XrUuidEXT>& uuids) const {
    XrSpaceComponentStatusKS status = {XR_TYPE_SPACE_COMPONENT_STATUS_KS, nullptr, XR_FALSE, XR_FALSE};
    if (XR_FAILED(next_.get_component_status(space, XR_SPACE_COMPONENT_TYPE_SPACE_CONTAINER_KS, &status)) ||
        !status.enabled || status.changePending) {
        return false;
    }
    XrSpaceContainerKS container = {XR_TYPE_SPACE_CONTAINER_KS, nullptr, 0, 0, nullptr};
    if (XR_FAILED(next_.get_container(session_, space, &container))) return true;
    std::vector<XrUuidEXT> inside(std::min(container.uuidCountOutput, kMaxReportedCount));
    container.uuidCapacityInput = static_cast<std::uint32_t>(inside.size());
    container.uuids = inside.data();
    if (XR_FAILED(next_.get_container(session_, space, &container))) return true;
    inside.resize(std::min<std::size_t>(container.uuidCountOutput, inside.size()));
    uuids.insert(uuids.end(), inside.begin(), inside.end());
    return true;
}

void SceneContext::AddEntity(const XrSpaceQueryResultKS& result) {
    SceneEntity entity;
    entity.space = result.space;
    context_->AdoptSpace(result.space);
    entity.semantic_label = ReadLabel(result.space);
    const std::string base = entity.semantic_label.empty() ? "UNKNOWN" : entity.semantic_label;
    entity.name = Joined(base, ' ', ++label_counts_[base]);
    XrRect2Df box_2d{};
    if (XR_SUCCEEDED(next_.get_bounding_box_2d(session_, result.space, &box_2d))) entity.bounding_box_2d = box_2d;
    XrRect3DfKS box_3d{};
    if (XR_SUCCEEDED(next_.get_bounding_box_3d(session_, result.space, &box_3d))) entity.bounding_box_3d = box_3d;
    if ((entity.bounding_box_2d || entity.bounding_box_3d) && SupportsLocatable(result.space)) {
        RequestLocatable(result.space);
    }
    entities_[UuidText(result.uuid)] = std::move(entity);
}

std::string SceneContext::ReadLabel(XrSpace space) const {
    XrSemanticLabelsKS labels = {XR_TYPE_SEMANTIC_LABELS_KS, nullptr, 0, 0, nullptr};
    if (XR_FAILED(next_.get_semantic_labels(session_, space, &labels))) return {};
    std::string label(std::min(labels.bufferCountOutput, kMaxReportedCount), '\0');
    labels.bufferCapacityInput = static_cast<std::uint32_t>(label.size());
    labels.buffer = label.data();
    if (XR_FAILED(next_.get_semantic_labels(session_, space, &labels))) return {};
    label.resize(std::min<std::size_t>(labels.bufferCountOutput, label.size()));
    return label;
}

bool SceneContext::SupportsLocatable(XrSpace space) const {
    std::uint32_t count = 0;
    if (XR_FAILED(next_.enumerate_components(space, 0, &count, nullptr))) return false;
    std::vector<XrSpaceComponentTypeKS> types(std::min(count, kMaxReportedCount));
    if (XR_FAILED(next_.enumerate_components(space, static_cast<std::uint32_t>(types.size()), &count, types.data()))) {
        return false;
    }
    types.resize(std::min<std::size_t>(count, types.size()));
    return std::find(types.begin(), types.end(), XR_SPACE_COMPONENT_TYPE_LOCATABLE_KS) != types.end();
}

void SceneContext::RequestLocatable(XrSpace space) {
    const XrSpaceComponentStatusSetInfoKS enable = {XR_TYPE_SPACE_COMPONENT_STATUS_SET_INFO_KS, nullptr,
                                                    XR_SPACE_COMPONENT_TYPE_LOCATABLE_KS, XR_TRUE, 0};
    XrAsyncRequestIdKS request = 0;
    if (XR_SUCCEEDED(next_.set_component_status(space, &enable, &request))) {
        pending_locatable_requests_.insert(request);
    }
}

std::shared_ptr<SceneContext> MakeSceneContext(XrSession session) {
    return std::make_shared<SceneContext>(session);
}

std::string UuidText(const XrUuidEXT& uuid) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < sizeof uuid.data; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += kDigits[uuid.data[i] >> 4];
        text += kDigits[uuid.data[i] & 0xF];
    }
    return text;
}

}  // namespace orvanic_xr
