// A room for the scripted next layer: spaces with labels and boxes, and queries that are answered when the test says
// so.
#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "scene/scene_context.h"
#include "tests/fakes/fake_runtime.h"
#include "xr/handles.h"

namespace orvanic_xr {

class FakeRoom {
 public:
    explicit FakeRoom(FakeRuntime& runtime) { install(runtime); }

    // A container that names a space for each label; they are found by the second query only.
    void container_with(const std::vector<std::string>& labels) {
        Thing container;
        container.container = true;
        for (const std::string& label : labels) container.contents.push_back(add({label, false, {}}, false));
        add(std::move(container), true);
    }
    // A space that the first query finds though it is no container.
    void loose(const std::string& label) { add({label, false, {}}, true); }

    void claim_count(std::uint32_t count) { claimed_count_ = count; }
    void reset_requests() {
        queries_.clear();
        pending_.clear();
        components_.clear();
    }

    // What xrPollEvent brings: the newest query's results are there, if one was asked ...
    std::vector<XrEventDataBuffer> results_available() const {
        if (pending_.empty()) return {};
        return {Event<XrEventDataSpaceQueryResultsAvailableKS>(
            {XR_TYPE_EVENT_DATA_SPACE_QUERY_RESULTS_AVAILABLE_KS, nullptr, pending_.rbegin()->first})};
    }
    // ... and every component that was asked for is set.
    std::vector<XrEventDataBuffer> components_set(XrResult result = XR_SUCCESS) const {
        std::vector<XrEventDataBuffer> events;
        for (const XrAsyncRequestIdKS request : components_) {
            events.push_back(
                Event<XrEventDataSpaceSetStatusCompleteKS>({XR_TYPE_EVENT_DATA_SPACE_SET_STATUS_COMPLETE_KS,
                                                            nullptr,
                                                            request,
                                                            result,
                                                            XR_NULL_HANDLE,
                                                            {},
                                                            XR_SPACE_COMPONENT_TYPE_LOCATABLE_KS,
                                                            XR_TRUE}));
        }
        return events;
    }

    void deliver_results(SceneContext& scene) {
        for (const XrEventDataBuffer& event : results_available()) scene.on_event(event);
    }
    void deliver_components(SceneContext& scene, XrResult result = XR_SUCCESS) {
        for (const XrEventDataBuffer& event : components_set(result)) scene.on_event(event);
    }
    void deliver_unknown_request(SceneContext& scene) {
        scene.on_event(Event<XrEventDataSpaceQueryResultsAvailableKS>(
            {XR_TYPE_EVENT_DATA_SPACE_QUERY_RESULTS_AVAILABLE_KS, nullptr, 999}));
    }

    const std::vector<std::string>& queries() const { return queries_; }

 private:
    struct Thing {
        std::string label;
        bool container = false;
        std::vector<std::size_t> contents;
    };

    template <typename Record>
    static XrEventDataBuffer Event(const Record& record) {
        XrEventDataBuffer buffer{};
        std::memcpy(&buffer, &record, sizeof record);
        return buffer;
    }

    std::size_t add(Thing thing, bool found_at_once) {
        things_.push_back(std::move(thing));
        if (found_at_once) found_at_once_.push_back(things_.size() - 1);
        return things_.size() - 1;
    }
    static XrSpace space_of(std::size_t index) { return HandleFromValue<XrSpace>(0x9000 + index); }
    Thing& thing(XrSpace space) { return things_.at(HandleValue(space) - 0x9000); }
    static XrUuidEXT uuid_of(std::size_t index) {
        XrUuidEXT uuid{};
        uuid.data[15] = static_cast<std::uint8_t>(index + 1);
        return uuid;
    }

    // Makes the runtime answer with this room.
    void install(FakeRuntime& runtime) {
        runtime.on("xrQuerySpacesKS", [this](XrSession, const XrSpaceQueryInfoBaseHeaderKS* info,
                                             XrAsyncRequestIdKS* request) { return query(info, request); });
        runtime.on("xrRetrieveSpaceQueryResultsKS",
                   [this](XrSession, XrAsyncRequestIdKS request, XrSpaceQueryResultsKS* results) {
                       return retrieve(request, results);
                   });
        runtime.on("xrGetSpaceComponentStatusKS",
                   [this](XrSpace space, XrSpaceComponentTypeKS type, XrSpaceComponentStatusKS* status) {
                       status->enabled = type == 7 && thing(space).container;
                       return XR_SUCCESS;
                   });
        runtime.on("xrGetSpaceContainerKS", [this](XrSession, XrSpace space, XrSpaceContainerKS* container) {
            std::vector<XrUuidEXT> uuids;
            for (const std::size_t index : thing(space).contents) uuids.push_back(uuid_of(index));
            container->uuidCountOutput = static_cast<std::uint32_t>(uuids.size());
            if (container->uuids) std::copy(uuids.begin(), uuids.end(), container->uuids);
            return XR_SUCCESS;
        });
        runtime.on("xrGetSpaceSemanticLabelsKS", [this](XrSession, XrSpace space, XrSemanticLabelsKS* labels) {
            const std::string& label = thing(space).label;
            labels->bufferCountOutput = static_cast<std::uint32_t>(label.size());
            if (labels->buffer) label.copy(labels->buffer, labels->bufferCapacityInput);
            return XR_SUCCESS;
        });
        runtime.on("xrGetSpaceBoundingBox2DKS", [](XrSession, XrSpace, XrRect2Df* box) {
            *box = {{-1, -2}, {2, 4}};
            return XR_SUCCESS;
        });
        runtime.on("xrGetSpaceBoundingBox3DKS", [](XrSession, XrSpace, XrRect3DfKS* box) {
            *box = {{-0.5f, 0, -0.25f}, {1, 0.75f, 0.5f}};
            return XR_SUCCESS;
        });
        runtime.on("xrEnumerateSpaceSupportedComponentsKS",
                   [](XrSpace, std::uint32_t capacity, std::uint32_t* count, XrSpaceComponentTypeKS* types) {
                       *count = 2;
                       if (capacity >= 2) types[0] = 5, types[1] = 0;
                       return XR_SUCCESS;
                   });
        runtime.on("xrSetSpaceComponentStatusKS",
                   [this](XrSpace, const XrSpaceComponentStatusSetInfoKS*, XrAsyncRequestIdKS* request) {
                       *request = ++last_request_;
                       components_.push_back(*request);
                       return XR_SUCCESS;
                   });
    }

    XrResult query(const XrSpaceQueryInfoBaseHeaderKS* base, XrAsyncRequestIdKS* request) {
        const auto& info = *reinterpret_cast<const XrSpaceQueryInfoKS*>(base);
        std::vector<std::size_t> answer = found_at_once_;
        std::string text;
        if (info.filter->type == XR_TYPE_SPACE_UUID_FILTER_INFO_KS) {
            const auto& named = *reinterpret_cast<const XrSpaceUuidFilterInfoKS*>(info.filter);
            answer.clear();
            for (std::uint32_t i = 0; i < named.uuidCount; ++i) answer.push_back(named.uuids[i].data[15] - 1u);
            text = std::to_string(named.uuidCount) + " uuids";
        } else {
            const auto& kind = *reinterpret_cast<const XrSpaceComponentFilterInfoKS*>(info.filter);
            text = "component " + std::to_string(kind.componentType);
        }
        const auto& storage = *static_cast<const XrSpaceStorageLocationFilterInfoKS*>(info.filter->next);
        text += storage.location == 1 ? ", local" : ", elsewhere";
        queries_.push_back(text + ", at most " + std::to_string(info.maxResultCount));
        *request = ++last_request_;
        pending_[*request] = answer;
        return XR_SUCCESS;
    }

    XrResult retrieve(XrAsyncRequestIdKS request, XrSpaceQueryResultsKS* results) {
        const std::vector<std::size_t>& answer = pending_.at(request);
        const auto count = static_cast<std::uint32_t>(answer.size());
        if (!results->results) {
            results->resultCountOutput = claimed_count_ ? claimed_count_ : count;
            return XR_SUCCESS;
        }
        results->resultCountOutput = count;
        for (std::uint32_t i = 0; i < std::min(count, results->resultCapacityInput); ++i) {
            results->results[i] = {space_of(answer[i]), uuid_of(answer[i])};
        }
        return XR_SUCCESS;
    }

    std::vector<Thing> things_;
    std::vector<std::size_t> found_at_once_;
    std::map<XrAsyncRequestIdKS, std::vector<std::size_t>> pending_;
    std::vector<XrAsyncRequestIdKS> components_;
    std::vector<std::string> queries_;
    std::uint32_t claimed_count_ = 0;
    XrAsyncRequestIdKS last_request_ = 0;
};

}  // namespace orvanic_xr
