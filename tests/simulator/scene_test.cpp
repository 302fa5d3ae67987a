// The room through the spatial entity functions.
#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <thread>

#include "layer/dispatch/dispatch.h"
#include "tests/simulator/simulator_fixture.h"
#include "xr/spatial_entity_ks.h"

namespace simulator_test {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

constexpr XrSpaceComponentTypeKS kLocatable = XR_SPACE_COMPONENT_TYPE_LOCATABLE_KS;

class SimulatorScene : public SimulatorTest {
 protected:
    std::vector<const char*> Extensions() const override {
        return {"XR_MND_headless",
                "XR_KS_spatial_entity",
                "XR_KS_spatial_entity_query",
                "XR_KS_spatial_entity_storage",
                "XR_KS_spatial_entity_container",
                "XR_KS_scene"};
    }

    void SetUp() override {
        SimulatorTest::SetUp();
        orvanic_xr::PopulateDispatchTable(scene_, instance_, RuntimeLookup());
        session_ = MakeFocusedSession();
    }

    template <class Event>
    std::optional<Event> Await(XrStructureType type, XrAsyncRequestIdKS request) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (std::chrono::steady_clock::now() < deadline) {
            const auto buffer = NextEvent();
            if (!buffer) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                continue;
            }
            if (buffer->type != type) continue;
            Event event;
            std::memcpy(&event, &*buffer, sizeof(event));
            if (event.requestId == request) return event;
        }
        return std::nullopt;
    }

    XrResult TryQuery(const void* filter, std::uint32_t max_results, XrAsyncRequestIdKS& request) {
        const XrSpaceQueryInfoKS info = {XR_TYPE_SPACE_QUERY_INFO_KS,
                                         nullptr,
                                         XR_SPACE_QUERY_ACTION_LOAD_KS,
                                         max_results,
                                         0,
                                         static_cast<const XrSpaceFilterInfoBaseHeaderKS*>(filter),
                                         nullptr};
        return scene_.QuerySpacesKS(session_, reinterpret_cast<const XrSpaceQueryInfoBaseHeaderKS*>(&info), &request);
    }

    std::vector<XrSpaceQueryResultKS> Query(const void* filter, std::uint32_t max_results = 1000) {
        XrAsyncRequestIdKS request = 0;
        EXPECT_EQ(TryQuery(filter, max_results, request), XR_SUCCESS);
        EXPECT_TRUE(Await<XrEventDataSpaceQueryResultsAvailableKS>(XR_TYPE_EVENT_DATA_SPACE_QUERY_RESULTS_AVAILABLE_KS,
                                                                   request));
        auto results = Typed<XrSpaceQueryResultsKS>(XR_TYPE_SPACE_QUERY_RESULTS_KS);
        EXPECT_EQ(scene_.RetrieveSpaceQueryResultsKS(session_, request, &results), XR_SUCCESS);
        std::vector<XrSpaceQueryResultKS> found(results.resultCountOutput);
        results.resultCapacityInput = results.resultCountOutput;
        results.results = found.data();
        EXPECT_EQ(scene_.RetrieveSpaceQueryResultsKS(session_, request, &results), XR_SUCCESS);
        return found;
    }

    std::vector<XrSpaceQueryResultKS> Containers() {
        const XrSpaceStorageLocationFilterInfoKS local = {XR_TYPE_SPACE_STORAGE_LOCATION_FILTER_INFO_KS, nullptr, 1};
        const XrSpaceComponentFilterInfoKS containers = {XR_TYPE_SPACE_COMPONENT_FILTER_INFO_KS, &local,
                                                         XR_SPACE_COMPONENT_TYPE_SPACE_CONTAINER_KS};
        return Query(&containers, 100);
    }

    std::vector<XrUuidEXT> ContentsOf(XrSpace space) {
        auto container = Typed<XrSpaceContainerKS>(XR_TYPE_SPACE_CONTAINER_KS);
        EXPECT_EQ(scene_.GetSpaceContainerKS(session_, space, &container), XR_SUCCESS);
        std::vector<XrUuidEXT> uuids(container.uuidCountOutput);
        container.uuidCapacityInput = container.uuidCountOutput;
        container.uuids = uuids.data();
        EXPECT_EQ(scene_.GetSpaceContainerKS(session_, space, &container), XR_SUCCESS);
        return uuids;
    }

    std::string LabelOf(XrSpace space) {
        auto labels = Typed<XrSemanticLabelsKS>(XR_TYPE_SEMANTIC_LABELS_KS);
        if (XR_FAILED(scene_.GetSpaceSemanticLabelsKS(session_, space, &labels))) return "";
        std::string text(labels.bufferCountOutput, '?');
        labels.bufferCapacityInput = labels.bufferCountOutput;
        labels.buffer = text.data();
        EXPECT_EQ(scene_.GetSpaceSemanticLabelsKS(session_, space, &labels), XR_SUCCESS);
        return text;
    }

    // The spaces of the room's things by their labels.
    std::multimap<std::string, XrSpace> Things() {
        std::vector<XrUuidEXT> uuids = ContentsOf(Containers().front().space);
        const XrSpaceUuidFilterInfoKS named = {XR_TYPE_SPACE_UUID_FILTER_INFO_KS, nullptr,
                                               static_cast<std::uint32_t>(uuids.size()), uuids.data()};
        std::multimap<std::string, XrSpace> things;
        for (const auto& result : Query(&named)) things.emplace(LabelOf(result.space), result.space);
        return things;
    }

    XrAsyncRequestIdKS AskLocatable(XrSpace space) {
        const XrSpaceComponentStatusSetInfoKS info = {XR_TYPE_SPACE_COMPONENT_STATUS_SET_INFO_KS, nullptr, kLocatable,
                                                      XR_TRUE, 0};
        XrAsyncRequestIdKS request = 0;
        EXPECT_EQ(scene_.SetSpaceComponentStatusKS(space, &info, &request), XR_SUCCESS);
        return request;
    }

    XrSpaceComponentStatusKS StatusOf(XrSpace space) {
        auto status = Typed<XrSpaceComponentStatusKS>(XR_TYPE_SPACE_COMPONENT_STATUS_KS);
        EXPECT_EQ(scene_.GetSpaceComponentStatusKS(space, kLocatable, &status), XR_SUCCESS);
        return status;
    }

    orvanic_xr::NextDispatchTable scene_;  // with the functions that no header of OpenXR declares
    XrSession session_ = XR_NULL_HANDLE;
};

TEST_F(SimulatorScene, RoomIsFoundThroughItsContainer) {
    ASSERT_EQ(Containers().size(), 1u);
    std::map<std::string, int> count;
    for (const auto& [label, space] : Things()) ++count[label];
    EXPECT_THAT(count, ElementsAre(Pair("", 1), Pair("CEILING", 1), Pair("COUCH", 1), Pair("FLOOR", 1), Pair("LAMP", 1),
                                   Pair("TABLE", 2), Pair("WALL", 4)));
}

TEST_F(SimulatorScene, ThingIsLocatedOnceThatWasAskedFor) {
    const XrSpace stage = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_STAGE);
    const XrSpace couch = Things().find("COUCH")->second;
    EXPECT_EQ(Locate(couch, stage).locationFlags, 0u);
    EXPECT_FALSE(StatusOf(couch).enabled);
    const XrAsyncRequestIdKS request = AskLocatable(couch);
    EXPECT_TRUE(StatusOf(couch).changePending);
    const auto event =
        Await<XrEventDataSpaceSetStatusCompleteKS>(XR_TYPE_EVENT_DATA_SPACE_SET_STATUS_COMPLETE_KS, request);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->result, XR_SUCCESS);
    EXPECT_EQ(event->space, couch);
    EXPECT_TRUE(StatusOf(couch).enabled);
    EXPECT_FALSE(StatusOf(couch).changePending);
    const XrSpaceLocation location = Locate(couch, stage);
    EXPECT_EQ(location.locationFlags, 0xFu);
    // The middle of its top, looked at from above.
    EXPECT_NEAR(location.pose.position.x, 0.2f, 1e-6);
    EXPECT_NEAR(location.pose.position.y, 0.8f, 1e-6);
    EXPECT_NEAR(location.pose.position.z, 1.5f, 1e-6);
    EXPECT_NEAR(location.pose.orientation.x, -0.70710678f, 1e-6);
}

TEST_F(SimulatorScene, ResultsAreThereOnceTheEventIsDue) {
    setenv("VELMOOR_SIM_HZ", "1", 1);
    DestroyInstance(instance_);
    ASSERT_EQ(TryCreateInstance(Extensions(), instance_), XR_SUCCESS);
    session_ = MakeSession();
    XrAsyncRequestIdKS request = 0;
    ASSERT_EQ(TryQuery(nullptr, 10, request), XR_SUCCESS);
    auto results = Typed<XrSpaceQueryResultsKS>(XR_TYPE_SPACE_QUERY_RESULTS_KS);
    EXPECT_EQ(scene_.RetrieveSpaceQueryResultsKS(session_, request, &results), XR_ERROR_CALL_ORDER_INVALID);
    while (const auto event = NextEvent()) EXPECT_NE(event->type, XR_TYPE_EVENT_DATA_SPACE_QUERY_RESULTS_AVAILABLE_KS);
}

}  // namespace
}  // namespace simulator_test
