// Spaces and views, with no device simulated.
#include <gmock/gmock.h>

#include <cmath>

#include "tests/simulator/simulator_fixture.h"

namespace simulator_test {
namespace {

class SimulatorSpaces : public SimulatorTest {};

TEST_F(SimulatorSpaces, ReferenceSpacesLieWhereTheyShould) {
    const XrSession session = MakeSession();
    const XrSpace stage = MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE);
    const struct {
        const char* name;
        XrReferenceSpaceType type;
        XrVector3f position;
    } rows[] = {
        {"local", XR_REFERENCE_SPACE_TYPE_LOCAL, {0.0f, 1.6f, 0.5f}},
        {"local floor", XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR, {0.0f, 0.0f, 0.5f}},
        {"stage", XR_REFERENCE_SPACE_TYPE_STAGE, {0.0f, 0.0f, 0.0f}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const XrSpaceLocation location = Locate(MakeSpace(session, row.type), stage);
        EXPECT_EQ(location.locationFlags, 0xFu);
        EXPECT_FLOAT_EQ(location.pose.position.x, row.position.x);
        EXPECT_FLOAT_EQ(location.pose.position.y, row.position.y);
        EXPECT_FLOAT_EQ(location.pose.position.z, row.position.z);
        EXPECT_FLOAT_EQ(location.pose.orientation.w, 1.0f);
    }
}

TEST_F(SimulatorSpaces, PoseInTheBaseSpaceIsTakenOff) {
    const XrSession session = MakeSession();
    const float half = std::sqrt(0.5f);
    // A quarter turn to the left about y, one metre to the right: what lies at the stage's origin is then
    // straight ahead.
    const XrSpace base = MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE, {{0, half, 0, half}, {1, 0, 0}});
    const XrPosef pose = Locate(MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE), base).pose;
    EXPECT_NEAR(pose.position.x, 0.0f, 1e-6);
    EXPECT_NEAR(pose.position.z, -1.0f, 1e-6);
    EXPECT_NEAR(pose.orientation.y, -half, 1e-6);
}

TEST_F(SimulatorSpaces, LocateIsChecked) {
    const XrSession session = MakeSession();
    const XrSpace stage = MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE);
    const XrSpace foreign = MakeSpace(MakeSession(), XR_REFERENCE_SPACE_TYPE_STAGE);
    auto location = Typed<XrSpaceLocation>(XR_TYPE_SPACE_LOCATION);
    EXPECT_EQ(LocateSpace(stage, stage, 0, &location), XR_ERROR_TIME_INVALID);
    EXPECT_EQ(LocateSpace(stage, foreign, 1, &location), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(LocateSpace(stage, XR_NULL_HANDLE, 1, &location), XR_ERROR_HANDLE_INVALID);
    location.type = XR_TYPE_UNKNOWN;
    EXPECT_EQ(LocateSpace(stage, stage, 1, &location), XR_ERROR_VALIDATION_FAILURE);
}

TEST_F(SimulatorSpaces, PoseHasToBeOne) {
    const XrSession session = MakeSession();
    const float nan = std::nanf("");
    const std::pair<XrPosef, XrResult> rows[] = {
        {{{0, 0, 0, 0}, {0, 0, 0}}, XR_ERROR_POSE_INVALID},   {{{0, 0, 0, 1.02f}, {0, 0, 0}}, XR_ERROR_POSE_INVALID},
        {{{0, 0, 0, nan}, {0, 0, 0}}, XR_ERROR_POSE_INVALID}, {{{0, 0, 0, 1}, {0, nan, 0}}, XR_ERROR_POSE_INVALID},
        {{{0, 0, 0, 1.005f}, {0, 0, 0}}, XR_SUCCESS},
    };
    for (const auto& [pose, expected] : rows) {
        const XrReferenceSpaceCreateInfo info = {XR_TYPE_REFERENCE_SPACE_CREATE_INFO, nullptr,
                                                 XR_REFERENCE_SPACE_TYPE_STAGE, pose};
        XrSpace space = XR_NULL_HANDLE;
        EXPECT_EQ(CreateReferenceSpace(session, &info, &space), expected) << pose.orientation.w;
    }
}

}  // namespace
}  // namespace simulator_test
