#include <gmock/gmock.h>

#include <string>

#include "tests/fakes/log_capture.h"
#include "tests/tools/tool_answer.h"
#include "tools/convert/convert_tools.h"

namespace orvanic_xr {
namespace {

constexpr auto kToOpenXr = make_convert_unity_pose_to_openxr_tool_entry;
constexpr auto kToUnity = make_convert_openxr_pose_to_unity_tool_entry;

TEST(HandednessTools, MirrorWhatIsGiven) {
    ExpectAnswers({
        {kToOpenXr, R"({"position":[1,2,3]})", R"({"success":true,"position":[1.0,2.0,-3.0]})"},
        {kToOpenXr, R"({"orientation":[0.1,0.2,0.3,0.9]})", R"({"success":true,"orientation":[-0.1,-0.2,0.3,0.9]})"},
        {kToUnity, R"({"orientation":[0,-0.5,0,2],"position":[1.25,0,0]})",
         R"({"success":true,"position":[1.25,0.0,0.0],"orientation":[0.0,0.5,0.0,2.0]})"},
        {kToUnity, R"({"position":"1,2,3","orientation":[0,0,0,1]})",
         R"({"success":true,"orientation":[0.0,0.0,0.0,1.0]})"},
        {kToUnity, R"({"position":[1e39,0,1e-5],"orientation":{}})", R"({"success":true,"position":[1e+39,0.0,0.0]})"},
    });
}

TEST(HandednessTools, TellTheFirstFault) {
    const std::string neither =
        "At least one of 'position' (array of 3 numbers) or 'orientation' (array of 4 numbers) must be provided.";
    const std::string neither_line = "at least one of 'position' or 'orientation' must be provided";
    ExpectRefusals({
        {kToOpenXr, "{}", neither, neither_line},
        {kToUnity, "[]", neither, neither_line},
        {kToUnity, R"({"position":"1,2,3","orientation":null})", neither, neither_line},
        {kToOpenXr, R"({"position":[1,2],"orientation":[0,0,0,1]})",
         "'position' must be an array of 3 numbers [x,y,z]."},
        {kToOpenXr, R"({"position":[1,2,"3"],"orientation":[0]})", "position components must be numbers."},
        {kToUnity, R"({"position":[1,2,3],"orientation":[0,0,1]})",
         "'orientation' must be an array of 4 numbers [x,y,z,w]."},
        {kToUnity, R"({"orientation":[0,0,0,true]})", "orientation components must be numbers."},
    });
}

}  // namespace
}  // namespace orvanic_xr
