#include "scene/scene_context.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "scene/scene_tools.h"
#include "tests/scene/fake_room.h"
#include "tests/tools/session_fixture.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

using mcp::json;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

class Scene : public SessionTest {
 protected:
    Scene() {
        EnableExtensions({});
        runtime_.offer_spatial_entities();
        context_->ConsumeFrameTime();
    }
    std::set<std::string> Names(const SceneContext& scene) {
        std::set<std::string> names;
        for (const auto& [uuid, entity] : scene.entities()) names.insert(entity.name);
        return names;
    }

    FakeRoom room_{runtime_};
};

TEST_F(Scene, ContainersAreOpenedAndTheRestBecomesEntities) {
    room_.container_with({"TABLE", "TABLE", "", "FLOOR"});
    room_.loose("LAMP");
    SceneContext scene(session_);
    EXPECT_EQ(scene.state(), QueryingContainers);
    room_.deliver_results(scene);
    EXPECT_EQ(scene.state(), QueryingRemainingUuids);
    room_.deliver_results(scene);
    EXPECT_EQ(scene.state(), WaitingForComponents);
    EXPECT_FALSE(scene.is_ready());
    log_.take();
    room_.deliver_components(scene);
    EXPECT_TRUE(scene.is_ready());
    EXPECT_THAT(Names(scene), ElementsAre("FLOOR 1", "LAMP 1", "TABLE 1", "TABLE 2", "UNKNOWN 1"));
    EXPECT_EQ(log_.lines().front(), "INFO Scene query complete, found 5 entities.");
    EXPECT_THAT(log_.lines(),
                testing::Contains("INFO Entity 00000000-0000-0000-0000-000000000003: name=\"UNKNOWN 1\" label=<none> "
                                  "bbox2D=[offset:(-1, -2), extent:(2, 4)] "
                                  "bbox3D=[offset:(-0.5, 0, -0.25), extent:(1, 0.75, 0.5)]"));
    EXPECT_THAT(room_.queries(), ElementsAre("component 7, local, at most 100", "4 uuids, local, at most 1000"));
}

TEST_F(Scene, AnEmptyRoomIsCompleteWithAWarning) {
    SceneContext scene(session_);
    room_.deliver_results(scene);
    EXPECT_TRUE(scene.is_ready());
    EXPECT_TRUE(scene.entities().empty());
    EXPECT_THAT(log_.lines("WARNING"), ElementsAre("WARNING Failed to start remaining UUIDs query"));
}

TEST_F(Scene, StaysSilentWithoutSessionAndWarnsWithoutFunctions) {
    SceneContext standby(XR_NULL_HANDLE);
    EXPECT_THAT(log_.take(), IsEmpty());
    for (const char* function : {"xrQuerySpacesKS", "xrGetSpaceContainerKS", "xrDestroySpace"}) {
        SCOPED_TRACE(function);
        log_.take();
        runtime_.lack(function);
        SceneContext scene(session_);
        EXPECT_EQ(scene.state(), NotStarted);
        EXPECT_THAT(log_.take(),
                    ElementsAre("WARNING Required scene query extensions not enabled. Is the application a "
                                "mixed-reality one?"));
        runtime_.offer(function);
    }
}

TEST_F(Scene, AFailureLeavesTheQueryWhereItWas) {
    const struct {
        const char* function;
        int nth;
        SceneQueryState left_in;
    } cases[] = {
        {"xrQuerySpacesKS", 1, Failed},
        {"xrRetrieveSpaceQueryResultsKS", 1, QueryingContainers},
        {"xrRetrieveSpaceQueryResultsKS", 2, QueryingContainers},
        {"xrRetrieveSpaceQueryResultsKS", 3, QueryingRemainingUuids},
        {"xrQuerySpacesKS", 2, WaitingForComponents},
    };
    room_.container_with({"TABLE"});
    room_.loose("LAMP");
    for (const auto& row : cases) {
        SCOPED_TRACE(std::string(row.function) + " call " + std::to_string(row.nth));
        room_.reset_requests();
        runtime_.answer_call(row.function, row.nth, XR_ERROR_RUNTIME_FAILURE);
        SceneContext scene(session_);
        room_.deliver_results(scene);
        room_.deliver_results(scene);
        EXPECT_EQ(scene.state(), row.left_in);
        EXPECT_FALSE(scene.is_ready());
    }
}

TEST_F(Scene, WhatTheRuntimeCannotTellIsLeftOut) {
    room_.loose("CHAIR");
    runtime_.answer_call("xrGetSpaceSemanticLabelsKS", 2, XR_ERROR_RUNTIME_FAILURE);
    runtime_.answer_call("xrGetSpaceBoundingBox2DKS", 1, XR_ERROR_RUNTIME_FAILURE);
    runtime_.answer_call("xrGetSpaceBoundingBox3DKS", 1, XR_ERROR_RUNTIME_FAILURE);
    SceneContext scene(session_);
    room_.deliver_results(scene);
    EXPECT_TRUE(scene.is_ready()) << "without a box nothing waits for the locatable component";
    ASSERT_THAT(Names(scene), ElementsAre("UNKNOWN 1"));
    EXPECT_FALSE(scene.entities().begin()->second.bounding_box_2d);
    EXPECT_FALSE(scene.entities().begin()->second.bounding_box_3d);
    EXPECT_THAT(runtime_.calls("xrSetSpaceComponentStatusKS"), IsEmpty());
}

TEST_F(Scene, AContainerThatIsBeingSwitchedIsAnEntity) {
    room_.container_with({"TABLE"});
    runtime_.on("xrGetSpaceComponentStatusKS", [](XrSpace, XrSpaceComponentTypeKS, XrSpaceComponentStatusKS* status) {
        status->enabled = status->changePending = XR_TRUE;
        return XR_SUCCESS;
    });
    SceneContext scene(session_);
    room_.deliver_results(scene);
    EXPECT_THAT(Names(scene), ElementsAre("UNKNOWN 1"));
}

TEST_F(Scene, ForeignRequestsAbsurdCountsAndFailedRequestsCompleteNothing) {
    room_.loose("TABLE");
    SceneContext scene(session_);
    room_.deliver_unknown_request(scene);
    EXPECT_EQ(scene.state(), QueryingContainers);
    room_.claim_count(0xFFFFFFFFu);
    room_.deliver_results(scene);
    EXPECT_THAT(Names(scene), ElementsAre("TABLE 1"));
    room_.deliver_components(scene, XR_ERROR_RUNTIME_FAILURE);
    room_.deliver_unknown_request(scene);
    EXPECT_EQ(scene.state(), WaitingForComponents);
    room_.deliver_components(scene);
    EXPECT_TRUE(scene.is_ready());
}

TEST_F(Scene, TheContextDestroysTheSpacesItWasGiven) {
    room_.container_with({"TABLE", "LAMP"});
    {
        SceneContext scene(session_);
        room_.deliver_results(scene);
        room_.deliver_results(scene);
    }
    EXPECT_EQ(log_.lines().back(), "INFO SceneContext destroyed");
    EXPECT_THAT(runtime_.calls("xrDestroySpace"), IsEmpty()) << "they go with the session";
    ContextManager::instance().removeSessionContext(session_);
    EXPECT_EQ(runtime_.calls("xrDestroySpace").size(), 2u + 8u);
}

class SpatialEntitiesTool : public Scene {
 protected:
    SpatialEntitiesTool() { ContextManager::instance().setSceneContextFactory(MakeSceneContext); }
    void Query() {
        ContextManager::instance().createSceneContext(session_);
        const auto scene = ContextManager::instance().getSceneContext(session_);
        room_.deliver_results(*scene);
        room_.deliver_results(*scene);
        room_.deliver_components(*scene);
    }
    std::string List(const json& arguments) {
        return make_openxr_list_spatial_entities_tool_entry().handler(arguments, "").at(0).at("text");
    }
};

TEST_F(SpatialEntitiesTool, RefusesInTheOrderOfItsChecks) {
    EXPECT_EQ(List({{"base_space", "no"}}),
              "Scene query is still in progress. Please try again in a moment when the scene data is ready.");
    Query();
    EXPECT_EQ(List({{"base_space", "no"}}),
              "Error: Invalid or unavailable base_space 'no'. Valid options: 'local', 'stage', 'local_floor', 'view'.");
    EXPECT_EQ(List({{"base_space", 7}}), "Error: No frame timing data available. No frames have been rendered yet.");
    context_->RecordFrameTime(1'000'000'000);
    EXPECT_EQ(List(json::array()), "{\n  \"base_space\": \"local\",\n  \"entity_count\": 0,\n  \"entities\": []\n}");
}

TEST_F(SpatialEntitiesTool, SaysInTheLogThatTheQueryWillNeverEnd) {
    const auto reason_of_a_new_query = [&] {
        ContextManager::instance().removeSceneContext(session_);
        ContextManager::instance().createSceneContext(session_);
        EXPECT_THAT(List({}), StartsWith("Scene query is still in progress."));
        return log_.lines("WARNING").back();
    };
    runtime_.answer("xrQuerySpacesKS", XR_ERROR_RUNTIME_FAILURE);
    EXPECT_THAT(reason_of_a_new_query(), EndsWith("the runtime refused to start it"));
    runtime_.lack("xrQuerySpacesKS");
    EXPECT_THAT(reason_of_a_new_query(), EndsWith("the application did not enable the scene extensions"));
}

TEST_F(SpatialEntitiesTool, PutsTheBoxesWhereTheBaseSpaceSeesThem) {
    room_.loose("TABLE");
    Query();
    context_->RecordFrameTime(1'000'000'000);
    // Half a turn about the vertical, two metres up: the box's middle comes to the other side.
    runtime_.on("xrLocateSpace", [](XrSpace, XrSpace, XrTime, XrSpaceLocation* location) {
        location->locationFlags = 0;
        location->pose = {{0, 1, 0, 0}, {10, 2, 0}};
        return XR_SUCCESS;
    });
    EXPECT_EQ(mcp::dump_json(mcp::parse_json(List({{"base_space", "stage"}}))),
              R"({"base_space":"stage","entity_count":1,"entities":[{"name":"TABLE 1","semantic_label":"TABLE",)"
              R"("bounding_box_2d":{"center":{"position":[10.0,2.0,0.0],"orientation":[0.0,1.0,0.0,0.0]},)"
              R"("size":{"width":2.0,"height":4.0}},"bounding_box_3d":{"center":{"position":[10.0,2.375,0.0],)"
              R"("orientation":[0.0,1.0,0.0,0.0]},"size":{"width":1.0,"height":0.75,"depth":0.5}}}]})");
    runtime_.answer("xrLocateSpace", XR_ERROR_TIME_INVALID);
    EXPECT_EQ(mcp::dump_json(mcp::parse_json(List({}))["entities"][0]),
              R"({"name":"TABLE 1","semantic_label":"TABLE","bounding_box_2d":null,"bounding_box_3d":null})");
    EXPECT_EQ(log_.lines("WARNING").back(),
              "WARNING openxr_list_spatial_entities: xrLocateSpace failed for entity 'TABLE 1' with result: "
              "XR_ERROR_TIME_INVALID");
}

}  // namespace
}  // namespace orvanic_xr
