// The tools that show cached records, over records set by hand.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "context/context_manager.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tests/tools/tool_answer.h"
#include "tools/inspect/inspect_tools.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::int64_t kTime = 1'767'323'045'500'000'000;
#define TIME_TEXT R"({"unix_timestamp":1767323045.5,"iso8601":"2026-01-02T03:04:05.500Z"})"

class InfoTools : public testing::Test {
 protected:
    InfoTools() { Renew(ContextManager::instance()); }
    ~InfoTools() override { Renew(ContextManager::instance()); }

    static void CacheInstance() {
        InstanceState instance;
        instance.valid = true;
        instance.applicationName = "Reef";
        instance.applicationVersion = 4294967295;
        instance.engineVersion = 7;
        instance.apiVersion = XR_MAKE_VERSION(1, 1, 4000000000);
        instance.createdAt = kTime;
        instance.enabledApiLayers = {"XR_APILAYER_z", "XR_APILAYER_a"};
        instance.enabledExtensions = {"XR_EXT_b", "XR_EXT_a"};
        ContextManager::instance().setInstanceState(instance);
    }
    static void CacheSession(std::uint64_t handle, XrSessionState state) {
        ContextManager::instance().updateSessionState({true, HandleFromValue<XrSession>(handle), state, kTime});
    }
};

TEST_F(InfoTools, TellThatTheirRecordIsNotThereYet) {
    struct Row {
        ToolEntry (*make)();
        std::string called;
        std::string missing;
        std::string text;
    };
    const Row rows[] = {
        {make_openxr_get_instance_info_tool_entry, "isValid", "instance",
         "Instance info not yet available. XrInstance has not been created."},
        {make_openxr_get_session_info_tool_entry, "isValid", "session",
         "Session info not yet available. XrSession has not been created."},
        {make_openxr_get_system_info_tool_entry, "isValid", "system",
         "System info not yet available. XrSession has not been created."},
        {make_openxr_get_frame_info_tool_entry, "frameValid", "frame",
         "Frame info not yet available. No frames have been rendered."},
    };
    for (const Row& row : rows) {
        LogCapture log;
        EXPECT_EQ(AnswerText(row.make, R"({"include_history": true, "include_api_layers": true})"), row.text);
        const std::string tool = "openxr_get_" + row.missing + "_info";
        EXPECT_THAT(log.take(), ElementsAre("INFO " + tool + " tool called, " + row.called + "=false",
                                            "WARNING " + tool + ": " + row.missing + " info not yet available"));
    }
}

TEST_F(InfoTools, GiveTheInstanceWithItsListsOnlyForATrueFlag) {
    CacheInstance();
    const std::string head =
        R"({"application":{"name":"Reef","version":4294967295},"engine":{"name":null,"version":7},)"
        R"("api_version":{"major":1,"minor":1,"patch":4000000000,"string":"1.1.4000000000"},"timestamp_utc":)" TIME_TEXT;
    const std::vector<std::pair<const char*, std::string>> rows = {
        {R"({"include_api_layers": "true", "include_enabled_extensions": 1, "include_available_extensions": null})",
         head + "}"},
        {R"({"include_api_layers": false})", head + "}"},
        {R"({"include_available_extensions": true, "include_enabled_extensions": true, "include_api_layers": true})",
         head + R"(,"enabled_api_layers":["XR_APILAYER_z","XR_APILAYER_a"],)"
                R"("enabled_extensions":["XR_EXT_a","XR_EXT_b"],"available_extensions":[]})"},
    };
    for (const auto& [arguments, answer] : rows) {
        SCOPED_TRACE(arguments);
        LogCapture log;
        EXPECT_EQ(Answer(make_openxr_get_instance_info_tool_entry, arguments), answer);
        EXPECT_THAT(log.take(), ElementsAre("INFO openxr_get_instance_info tool called, isValid=true",
                                            "INFO openxr_get_instance_info: returning cached data"));
    }
}

TEST_F(InfoTools, GiveTheSessionAndItsHistory) {
    CacheSession(0x2A, XR_SESSION_STATE_IDLE);
    CacheSession(0x2A, static_cast<XrSessionState>(77));
    const std::string session = R"("session":{"handle":"42","handle_hex":"0x2a"},)";
    const std::string now =
        session + R"("state":{"value":77,"name":"XR_SESSION_STATE_UNKNOWN"},"timestamp_utc":)" TIME_TEXT;
    const std::string then =
        session + R"("state":{"value":1,"name":"XR_SESSION_STATE_IDLE"},"timestamp_utc":)" TIME_TEXT;
    EXPECT_EQ(Answer(make_openxr_get_session_info_tool_entry, "{}"), "{" + now + "}");
    LogCapture log;
    EXPECT_EQ(Answer(make_openxr_get_session_info_tool_entry, R"({"include_history": true})"),
              "{" + now + R"(,"history":[{)" + then + "},{" + now + "}]}");
    EXPECT_THAT(log.take(), ElementsAre("INFO openxr_get_session_info tool called, isValid=true",
                                        "INFO openxr_get_session_info: returning cached data",
                                        "INFO openxr_get_session_info: included history with 2 entries"));
}

TEST_F(InfoTools, GiveTheFrameAndItsHistory) {
    FrameState frame;
    frame.valid = true;
    frame.predictedDisplayPeriod = 13'888'888;
    ContextManager::instance().updateFrameState(frame);
    frame.session = HandleFromValue<XrSession>(0x2A);
    frame.displayTime = -2'500'000'000;
    frame.layers = {{XR_TYPE_COMPOSITION_LAYER_PROJECTION, 5}, {static_cast<XrStructureType>(36000), 1ull << 63}};
    frame.endFrameTime = kTime;
    ContextManager::instance().updateFrameState(frame);
    const std::string shown = Answer(make_openxr_get_frame_info_tool_entry, R"({"include_history": 1})");
    EXPECT_THAT(shown, testing::Not(HasSubstr("history")));
    EXPECT_THAT(shown, HasSubstr(R"("display_time":{"XrTime":-2500000000,"time_in_seconds":-2.5})"));
    EXPECT_THAT(shown, HasSubstr(R"("layers":[{"type":"XR_TYPE_COMPOSITION_LAYER_PROJECTION","flags":5},)"
                                 R"({"type":"XR_TYPE_UNKNOWN","flags":9223372036854775808}],"layer_count":2)"));
    EXPECT_THAT(shown, HasSubstr(R"("end_frame_timestamp":)" TIME_TEXT));
    LogCapture log;
    EXPECT_THAT(Answer(make_openxr_get_frame_info_tool_entry, R"({"include_history": true})"),
                testing::ContainsRegex(R"re("history":\[.*"XrTime":0,.*"XrTime":-2500000000,)re"));
    EXPECT_EQ(log.take().back(), "INFO openxr_get_frame_info: included history with 2 entries");
}

}  // namespace
}  // namespace orvanic_xr
