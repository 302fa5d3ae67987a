#include <gmock/gmock.h>

#include <string>

#include "tests/fakes/log_capture.h"
#include "tests/tools/tool_answer.h"
#include "tools/math/math_tools.h"
#include "xr/pose_math.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;

constexpr auto kBuild = make_math_build_quat_tool_entry;
constexpr auto kDecompose = make_math_decompose_quat_tool_entry;
constexpr auto kMultiply = make_math_multiply_quat_tool_entry;

std::string Built(const std::string& quaternion) {
    return R"({"success":true,"quaternion":)" + quaternion + "}";
}

TEST(BuildQuat, LooksAlongTheFront) {
    ExpectAnswers({
        {kBuild, R"({"front_direction":[0,0,-1]})", Built("[0.0,0.0,0.0,1.0]")},
        {kBuild, R"({"front_direction":[1,0,0]})", Built("[0.0,-0.7071,0.0,0.7071]")},
        {kBuild, R"({"front_direction":[-4,0,0]})", Built("[0.0,0.7071,0.0,0.7071]")},
        {kBuild, R"({"front_direction":[0,1,0],"up_direction":[0,0,1]})", Built("[0.7071,0.0,0.0,0.7071]")},
        // Half turns, each by another branch: about x and z, and about the diagonal of x and y.
        {kBuild, R"({"front_direction":[0,0,1],"up_direction":[0,-1,0]})", Built("[1.0,0.0,0.0,0.0]")},
        {kBuild, R"({"front_direction":[0,0,-1],"up_direction":[0,-1,0]})", Built("[0.0,0.0,1.0,0.0]")},
        {kBuild, R"({"front_direction":[0,0,1],"up_direction":[1,0,0]})", Built("[0.7071,0.7071,0.0,0.0]")},
        {kBuild, R"({"front_direction":[1e-5,0,0]})", Built("[0.0,-0.7071,0.0,0.7071]")},
        {kBuild, R"({"front_direction":[1,0,0],"return_basis_vectors":1})", Built("[0.0,-0.7071,0.0,0.7071]")},
        {kBuild, R"({"front_direction":[0,0,5],"up_direction":[0,3,1],"return_basis_vectors":true})",
         R"({"success":true,"quaternion":[0.0,1.0,0.0,0.0],"front_direction":[0.0,0.0,1.0],)"
         R"("up_direction":[0.0,1.0,0.0],"right_direction":[-1.0,0.0,0.0]})"},
    });
    LogCapture log;
    Answer(kBuild, R"({"front_direction":[1,0,0]})");
    EXPECT_THAT(log.take(), ElementsAre("INFO math_build_quat tool called",
                                        "INFO math_build_quat: result=[0.000000, -0.707107, 0.000000, 0.707107]"));
}

// What the agent is told goes into the log as well.
ToolRow Fault(ToolEntry (*make)(), const char* arguments, const std::string& text) {
    return {make, arguments, text + ".", text};
}

TEST(BuildQuat, TellsTheFirstFault) {
    const std::string no_front = "'front_direction' must be an array of 3 numbers.";
    const std::string no_front_line = "Missing or invalid 'front_direction' parameter";
    const std::string parallel = "front_direction and up_direction are parallel or anti-parallel, cannot build basis.";
    const std::string parallel_line = "front_direction and up_direction are parallel";
    ExpectRefusals({
        {kBuild, "[]", no_front, no_front_line},
        {kBuild, R"({"front_direction":[1,0],"up_direction":5})", no_front, no_front_line},
        Fault(kBuild, R"({"front_direction":[1,0,"0"],"up_direction":5})",
              "front_direction components must be numbers"),
        Fault(kBuild, R"({"front_direction":[0,0,0],"up_direction":null})",
              "up_direction must be an array of 3 numbers"),
        Fault(kBuild, R"({"front_direction":[0,0,0],"up_direction":[0,true,0]})",
              "up_direction components must be numbers"),
        Fault(kBuild, R"({"front_direction":[0,1e-7,0],"up_direction":[0,0,0]})",
              "front_direction cannot be zero-length"),
        Fault(kBuild, R"({"front_direction":[0,1,0],"up_direction":[0,0,0]})", "up_direction cannot be zero-length"),
        {kBuild, R"({"front_direction":[0,1,0]})", parallel, parallel_line},
        {kBuild, R"({"front_direction":[0,-1,0]})", parallel, parallel_line},
        {kBuild, R"({"front_direction":[1e300,0,-1e300]})", parallel, parallel_line},  // too long to be normalised
    });
}

TEST(DecomposeQuat, RotatesTheAxes) {
    const std::string identity = R"({"success":true,"front_direction":[0.0,0.0,-1.0],"up_direction":[0.0,1.0,0.0],)"
                                 R"("right_direction":[1.0,0.0,0.0]})";
    ExpectAnswers({
        {kDecompose, R"({"quaternion":[0,0,0,1]})", identity},
        {kDecompose, R"({"quaternion":[0,0,0,2]})", identity},
        {kDecompose, R"({"quaternion":[0,0,0,-1e-5]})", identity},
        {kDecompose, R"({"quaternion":[0,-1,0,1]})",
         R"({"success":true,"front_direction":[1.0,0.0,0.0],"up_direction":[0.0,1.0,0.0],)"
         R"("right_direction":[0.0,0.0,1.0]})"},
        {kDecompose, R"({"quaternion":[0,0,0,0]})",
         R"({"success":true,"front_direction":[0.0,0.0,0.0],"up_direction":[0.0,0.0,0.0],)"
         R"("right_direction":[0.0,0.0,0.0]})"},
    });
    LogCapture log;
    Answer(kDecompose, R"({"quaternion":[1,0,0,1]})");
    EXPECT_THAT(log.take(), ElementsAre("INFO math_decompose_quat tool called",
                                        "INFO math_decompose_quat: front=[0.000000, 1.000000, 0.000000]"));
    ExpectRefusals({
        {kDecompose, R"({"quaternion":[0,0,1]})", "'quaternion' must be an array of 4 numbers [x,y,z,w].",
         "Missing or invalid 'quaternion' parameter"},
        Fault(kDecompose, R"({"quaternion":[0,0,0,"1"]})", "quaternion components must be numbers"),
    });
}

TEST(MultiplyQuat, GivesTheHamiltonProductNormalised) {
    ExpectAnswers({
        {kMultiply, R"({"quaternion1":[0,0,0,1],"quaternion2":[0,3,0,4]})",
         R"({"success":true,"result":[0.0,0.6,0.0,0.8]})"},
        {kMultiply, R"({"quaternion1":[1,0,0,1],"quaternion2":[0,1,0,1]})",
         R"({"success":true,"result":[0.5,0.5,0.5,0.5]})"},
        {kMultiply, R"({"quaternion1":[0,1,0,1],"quaternion2":[1,0,0,1]})",
         R"({"success":true,"result":[0.5,0.5,-0.5,0.5]})"},
        {kMultiply, R"({"quaternion1":[0,0,0,1e-10],"quaternion2":[1e-12,0,0,0]})",
         R"({"success":true,"result":[1.0,0.0,0.0,0.0]})"},
        {kMultiply, R"({"quaternion1":[0,0,0,0],"quaternion2":[0,0,0,1]})",
         R"({"success":true,"result":[0.0,0.0,0.0,0.0]})"},
    });
    const std::string text = "must be an array of 4 numbers [x,y,z,w].";
    ExpectRefusals({
        {kMultiply, R"({"quaternion1":[0,0,"a",1]})", "'quaternion1' " + text,
         "Missing or invalid 'quaternion1' parameter"},
        {kMultiply, R"({"quaternion1":[0,0,0,1],"quaternion2":[0,0,1]})", "'quaternion2' " + text,
         "Missing or invalid 'quaternion2' parameter"},
    });
}

TEST(SafeNormalize, LeavesWhatIsTooShortAsItIs) {
    EXPECT_EQ(safe_normalize(XrVector3f{1e-20f, 0.0f, 0.0f}).x, 1e-20f);
    EXPECT_EQ(safe_normalize(XrVector3f{0.0f, 1.1e-19f, 0.0f}).y, 1.0f);
}

}  // namespace
}  // namespace orvanic_xr
