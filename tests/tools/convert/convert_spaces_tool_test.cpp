// openxr_convert_pose_between_spaces over a scripted runtime.
#include <string>

#include "tests/tools/session_fixture.h"
#include "tools/convert/convert_tools.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kConvert = make_openxr_convert_pose_between_spaces_tool_entry;

class ConvertPoseBetweenSpaces : public SessionTest {
 protected:
    static std::string Convert(const std::string& arguments) { return Answer(kConvert, arguments); }
};

TEST_F(ConvertPoseBetweenSpaces, ComposesTheLocatedSpaceWithThePose) {
    runtime_.place("VIEW", {{0.0f, 0.70710678f, 0.0f, 0.70710678f}, {1, 2, 3}});  // turned left by a quarter
    EXPECT_EQ(Convert(R"({"source_space":"view","target_space":"local","position":[0,0,-2],)"
                      R"("orientation":[0.70710678,0,0,0.70710678]})"),
              R"({"source_space":"view","target_space":"local",)"
              R"("input_pose":{"position":[0.0,0.0,-2.0],"orientation":[0.7071,0.0,0.0,0.7071]},)"
              R"("output_pose":{"position":[-1.0,2.0,3.0],"orientation":[0.5,0.5,-0.5,0.5]},)"
              R"("flags":{"position_valid":true,"orientation_valid":true,"position_tracked":true,)"
              R"("orientation_tracked":true}})");
    EXPECT_THAT(runtime_.take_calls(), ElementsAre("xrLocateSpace(VIEW, LOCAL, 1000000000)"));
    EXPECT_THAT(log_.take(), ElementsAre("INFO openxr_convert_pose_between_spaces tool called",
                                         "INFO openxr_convert_pose_between_spaces: source_space=view, "
                                         "target_space=local",
                                         "INFO openxr_convert_pose_between_spaces: Successfully converted pose"));
}

TEST_F(ConvertPoseBetweenSpaces, GivesTheRawTransformByDefault) {
    runtime_.place("LOCAL_FLOOR", {{0.6f, 0, 0, 0.8f}, {0, -1.5f, 0}}, 3);
    const std::string transform = R"({"source_space":"local_floor","target_space":"stage",)"
                                  R"("input_pose":{"position":[0.0,0.0,0.0],"orientation":[0.0,0.0,0.0,1.0]},)"
                                  R"("output_pose":{"position":[0.0,-1.5,0.0],"orientation":[0.6,0.0,0.0,0.8]},)"
                                  R"("flags":{"position_valid":true,"orientation_valid":true,"position_tracked":false,)"
                                  R"("orientation_tracked":false}})";
    // What has the wrong kind or length counts as not given.
    EXPECT_EQ(Convert("{}"), transform);
    EXPECT_EQ(Convert(R"({"source_space":5,"target_space":null,"position":[1,2],"orientation":[1,0,0]})"), transform);
    EnableExtensions({});
    EXPECT_THAT(Convert("{}"), testing::StartsWith(R"({"source_space":"local","target_space":"stage")"));
    EXPECT_THAT(mcp::dump_json(kConvert().tool.input_schema), testing::HasSubstr("Default: 'local'\""));
}

TEST_F(ConvertPoseBetweenSpaces, RefusesInTheOrderOfItsChecks) {
    const std::string options = ". Valid options: 'local', 'stage', 'local_floor', 'view'.";
    // In each more than one thing is wrong.
    const std::string no_source = R"({"source_space":"Local","target_space":"here","position":["x",0,0]})";
    const std::string no_target = R"({"target_space":"here","position":["x",0,0]})";
    const std::string no_number = R"({"source_space":"view","position":["x",0,0]})";

    ContextManager::instance().removeSessionContext(session_);
    EXPECT_EQ(Convert(no_source), "Error: SessionContext is not valid.");
    BeginSession();
    EXPECT_EQ(Convert(no_source), "Error: Invalid or unavailable source_space 'Local'" + options);
    EXPECT_EQ(log_.take().back(),
              "ERROR openxr_convert_pose_between_spaces: Invalid or unavailable source_space: Local");
    EXPECT_EQ(Convert(no_target), "Error: Invalid or unavailable target_space 'here'" + options);
    context_->ConsumeFrameTime();
    EXPECT_EQ(Convert(no_number), "Error: No frame timing data available. No frames have been rendered yet.");
    EXPECT_THAT(runtime_.take_calls(), IsEmpty());

    context_->RecordFrameTime(77);
    runtime_.answer_once("xrLocateSpace", XR_ERROR_TIME_INVALID);
    EXPECT_EQ(Convert(no_number), "Error: xrLocateSpace failed (error code: XR_ERROR_TIME_INVALID).");
    for (const XrSpaceLocationFlags flags :
         {XR_SPACE_LOCATION_POSITION_VALID_BIT, XR_SPACE_LOCATION_ORIENTATION_VALID_BIT}) {
        runtime_.place("VIEW#2", {{0, 0, 0, 1}, {0, 0, 0}}, flags);
        EXPECT_EQ(Convert(no_number),
                  "Error: The runtime could not determine a valid transform between 'view' and 'stage' at the current "
                  "time. One or both spaces may not be locatable.");
    }
    EXPECT_THROW(Convert(R"({"position":["x",0,0]})"), mcp::json::type_error);
}

}  // namespace
}  // namespace orvanic_xr
