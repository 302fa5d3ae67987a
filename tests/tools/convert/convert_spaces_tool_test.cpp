// openxr_convert_pose_between_spaces over a scripted runtime.
#include <gmock/gmock.h>

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "layer/dispatch/dispatch.h"
#include "layer/dispatch/handles.h"
#include "tests/fakes/fake_runtime.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tests/tools/tool_answer.h"
#include "tools/convert/convert_tools.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kLocated[] =
    R"("flags":{"position_valid":true,"orientation_valid":true,"position_tracked":true,"orientation_tracked":true}})";
constexpr char kIdentity[] = R"({"position":[0.0,0.0,0.0],"orientation":[0.0,0.0,0.0,1.0]})";

class ConvertPoseBetweenSpaces : public testing::Test {
 protected:
    ConvertPoseBetweenSpaces() {
        Renew(ContextManager::instance());
        EnableExtensions({"XR_EXT_local_floor"});
    }
    ~ConvertPoseBetweenSpaces() override { Renew(ContextManager::instance()); }

    void EnableExtensions(std::set<std::string> names) {
        InstanceState instance;
        instance.valid = true;
        instance.instance = runtime_.instance();
        instance.enabledExtensions = std::move(names);
        ContextManager::instance().setInstanceState(instance);
    }

    void OpenSession() {
        XrSession session = XR_NULL_HANDLE;
        DispatchHolder::instance().Slot (&NextDispatchTable::CreateSession)(runtime_.instance(), nullptr, &session);
        ContextManager::instance().createSessionContext(session);
        ContextManager::instance().updateSessionState({true, session, XR_SESSION_STATE_FOCUSED, 1});
        context_ = ContextManager::instance().getSessionContext(session);
        runtime_.take_calls();
        log_.take();
    }

    void OpenSessionWithAFrame() {
        OpenSession();
        context_->RecordFrameTime(77);
    }

    std::string Convert(const std::string& arguments) {
        return Answer(make_openxr_convert_pose_between_spaces_tool_entry, arguments);
    }

    // The answer, with the last line of the log.
    std::string Refusal(const std::string& arguments, std::string& line) {
        const std::string answer = Convert(arguments);
        line = log_.take().back();
        return answer;
    }

    FakeRuntime runtime_;
    LogCapture log_;
    std::shared_ptr<SessionContext> context_;
};

TEST_F(ConvertPoseBetweenSpaces, ComposesTheLocatedSpaceWithThePose) {
    OpenSessionWithAFrame();
    runtime_.place("VIEW", {{0.0f, 0.70710678f, 0.0f, 0.70710678f}, {1, 2, 3}});  // turned left by a quarter
    EXPECT_EQ(Convert(R"({"source_space":"view","target_space":"local","position":[0,0,-2],)"
                      R"("orientation":[0.70710678,0,0,0.70710678]})"),
              R"({"source_space":"view","target_space":"local",)"
              R"("input_pose":{"position":[0.0,0.0,-2.0],"orientation":[0.7071,0.0,0.0,0.7071]},)"
              R"("output_pose":{"position":[-1.0,2.0,3.0],"orientation":[0.5,0.5,-0.5,0.5]},)" +
                  std::string(kLocated));
    EXPECT_THAT(runtime_.take_calls(), ElementsAre("xrLocateSpace(VIEW, LOCAL, 77)"));
    EXPECT_THAT(log_.take(), ElementsAre("INFO openxr_convert_pose_between_spaces tool called",
                                         "INFO openxr_convert_pose_between_spaces: source_space=view, "
                                         "target_space=local",
                                         "INFO openxr_convert_pose_between_spaces: Successfully converted pose"));
}

TEST_F(ConvertPoseBetweenSpaces, GivesTheRawTransformByDefault) {
    OpenSessionWithAFrame();
    runtime_.place("LOCAL_FLOOR", {{0.6f, 0, 0, 0.8f}, {0, -1.5f, 0}}, 3);
    const std::string transform =
        std::string(R"({"source_space":"local_floor","target_space":"stage","input_pose":)") + kIdentity +
        R"(,"output_pose":{"position":[0.0,-1.5,0.0],"orientation":[0.6,0.0,0.0,0.8]},)" +
        R"("flags":{"position_valid":true,"orientation_valid":true,"position_tracked":false,)" +
        R"("orientation_tracked":false}})";
    // What has the wrong kind or length counts as not given.
    EXPECT_EQ(Convert("{}"), transform);
    EXPECT_EQ(Convert(R"({"source_space":5,"target_space":null,"position":[1,2],"orientation":[1,0,0]})"), transform);
    EnableExtensions({});
    EXPECT_EQ(Convert(R"({"target_space":"local"})"),
              std::string(R"({"source_space":"local","target_space":"local","input_pose":)") + kIdentity +
                  R"(,"output_pose":)" + kIdentity + "," + kLocated);
}

TEST_F(ConvertPoseBetweenSpaces, RefusesInTheOrderOfItsChecks) {
    const std::string name = "openxr_convert_pose_between_spaces";
    const std::string invalid_space = R"({"source_space":"Local","target_space":"here"})";
    const std::string options = ". Valid options: 'local', 'stage', 'local_floor', 'view'.";
    std::string line;
    EXPECT_EQ(Convert(invalid_space), "Error: No valid XR session is currently active.");

    ContextManager::instance().updateSessionState({true, HandleFromValue<XrSession>(0x99), XR_SESSION_STATE_IDLE, 1});
    EXPECT_EQ(Refusal(invalid_space, line), "Error: SessionContext is not valid.");
    EXPECT_EQ(line, "ERROR " + name + ": SessionContext is not valid");

    OpenSession();
    EXPECT_EQ(Refusal(invalid_space, line), "Error: Invalid or unavailable source_space 'Local'" + options);
    EXPECT_EQ(line, "ERROR " + name + ": Invalid or unavailable source_space: Local");
    EXPECT_EQ(Refusal(R"({"target_space":"here"})", line),
              "Error: Invalid or unavailable target_space 'here'" + options);
    EXPECT_EQ(line, "ERROR " + name + ": Invalid or unavailable target_space: here");
    EXPECT_EQ(Refusal(R"({"position":["x",0,0]})", line),
              "Error: No frame timing data available. No frames have been rendered yet.");
    EXPECT_EQ(line, "WARNING " + name + ": No frame timing data available");
    EXPECT_THAT(runtime_.take_calls(), IsEmpty());

    context_->RecordFrameTime(77);
    runtime_.answer("xrLocateSpace", XR_ERROR_TIME_INVALID);
    EXPECT_EQ(Refusal(R"({"position":["x",0,0]})", line),
              "Error: xrLocateSpace failed (error code: XR_ERROR_TIME_INVALID).");
    EXPECT_EQ(line, "ERROR " + name + ": xrLocateSpace failed with result: XR_ERROR_TIME_INVALID");
    runtime_.lack("xrLocateSpace");
    EXPECT_EQ(Convert("{}"), "Error: xrLocateSpace failed (error code: XR_ERROR_FUNCTION_UNSUPPORTED).");
    runtime_.offer("xrLocateSpace");
    runtime_.behave("xrLocateSpace");

    for (const XrSpaceLocationFlags flags :
         {XR_SPACE_LOCATION_POSITION_VALID_BIT, XR_SPACE_LOCATION_ORIENTATION_VALID_BIT}) {
        runtime_.place("VIEW", {{0, 0, 0, 1}, {0, 0, 0}}, flags);
        EXPECT_EQ(Refusal(R"({"source_space":"view","position":["x",0,0]})", line),
                  "Error: The runtime could not determine a valid transform between 'view' and 'stage' at the current "
                  "time. One or both spaces may not be locatable.");
        EXPECT_EQ(line, "WARNING " + name + ": Space location does not have valid position and orientation");
    }

    EXPECT_THROW(Convert(R"({"position":["x",0,0]})"), mcp::json::type_error);
    EXPECT_THROW(Convert(R"({"orientation":[0,0,0,true]})"), mcp::json::type_error);
}

TEST_F(ConvertPoseBetweenSpaces, RefusesASpaceThatTheSessionLacks) {
    runtime_.answer("xrCreateReferenceSpace", XR_ERROR_REFERENCE_SPACE_UNSUPPORTED);
    OpenSessionWithAFrame();
    EXPECT_THAT(Convert("{}"), HasSubstr("Invalid or unavailable source_space 'local_floor'"));
}

TEST_F(ConvertPoseBetweenSpaces, NamesTheDefaultSourceInItsSchema) {
    const auto source_text = [] {
        return make_openxr_convert_pose_between_spaces_tool_entry()
            .tool.input_schema.at("properties")
            .at("source_space")
            .at("description")
            .get<std::string>();
    };
    EXPECT_THAT(source_text(), testing::EndsWith("Default: 'local_floor'"));
    EnableExtensions({});
    EXPECT_THAT(source_text(), testing::EndsWith("Default: 'local'"));
}

}  // namespace
}  // namespace orvanic_xr
