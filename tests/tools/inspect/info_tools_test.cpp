// The tools that show cached records, over records set by hand.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "context/context_manager.h"
#include "layer/dispatch/handles.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tests/tools/tool_answer.h"
#include "tools/inspect/inspect_tools.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;

constexpr std::int64_t kTime = 1'767'323'045'500'000'000;
#define TIME_TEXT R"({"unix_timestamp":1767323045.5,"iso8601":"2026-01-02T03:04:05.500Z"})"

class InfoTools : public testing::Test {
 protected:
    InfoTools() { Renew(ContextManager::instance()); }
    ~InfoTools() override { Renew(ContextManager::instance()); }

    static void CacheInstance(const std::string& engine) {
        InstanceState instance;
        instance.valid = true;
        instance.applicationName = "Reef";
        instance.applicationVersion = 4294967295;
        instance.engineName = engine;
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
        const char* called;
        const char* warning;
        const char* text;
    };
    const std::vector<Row> rows = {
        {make_openxr_get_instance_info_tool_entry, "INFO openxr_get_instance_info tool called, isValid=false",
         "WARNING openxr_get_instance_info: instance info not yet available",
         "Instance info not yet available. XrInstance has not been created."},
        {make_openxr_get_session_info_tool_entry, "INFO openxr_get_session_info tool called, isValid=false",
         "WARNING openxr_get_session_info: session info not yet available",
         "Session info not yet available. XrSession has not been created."},
        {make_openxr_get_system_info_tool_entry, "INFO openxr_get_system_info tool called, isValid=false",
         "WARNING openxr_get_system_info: system info not yet available",
         "System info not yet available. XrSession has not been created."},
        {make_openxr_get_frame_info_tool_entry, "INFO openxr_get_frame_info tool called, frameValid=false",
         "WARNING openxr_get_frame_info: frame info not yet available",
         "Frame info not yet available. No frames have been rendered."},
    };
    for (const Row& row : rows) {
        LogCapture log;
        EXPECT_EQ(AnswerText(row.make, R"({"include_history": true, "include_api_layers": true})"), row.text);
        EXPECT_THAT(log.take(), ElementsAre(row.called, row.warning));
    }
}

TEST_F(InfoTools, GiveTheInstanceByteForByte) {
    CacheInstance("Engine");
    LogCapture log;
    const json content = make_openxr_get_instance_info_tool_entry().handler(json::array(), "");
    EXPECT_EQ(
        mcp::dump_json(content),
        R"([{"type":"text","text":"{\n  \"application\": {\n    \"name\": \"Reef\",\n    \"version\": 4294967295\n  },\n)"
        R"(  \"engine\": {\n    \"name\": \"Engine\",\n    \"version\": 7\n  },\n)"
        R"(  \"api_version\": {\n    \"major\": 1,\n    \"minor\": 1,\n    \"patch\": 4000000000,\n)"
        R"(    \"string\": \"1.1.4000000000\"\n  },\n)"
        R"(  \"timestamp_utc\": {\n    \"unix_timestamp\": 1767323045.5,\n)"
        R"(    \"iso8601\": \"2026-01-02T03:04:05.500Z\"\n  }\n}"}])");
    EXPECT_THAT(log.take(), ElementsAre("INFO openxr_get_instance_info tool called, isValid=true",
                                        "INFO openxr_get_instance_info: returning cached data"));
}

TEST_F(InfoTools, GiveTheListsOfTheInstanceOnlyForATrueFlag) {
    CacheInstance("");
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
        EXPECT_EQ(Answer(make_openxr_get_instance_info_tool_entry, arguments), answer);
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

TEST_F(InfoTools, GiveNoSessionThatWasDestroyed) {
    CacheSession(0x2A, XR_SESSION_STATE_FOCUSED);
    ContextManager::instance().updateSessionState({});
    EXPECT_EQ(AnswerText(make_openxr_get_session_info_tool_entry, R"({"include_history": true})"),
              "Session info not yet available. XrSession has not been created.");
}

TEST_F(InfoTools, GiveTheSystem) {
    SystemState system;
    system.valid = true;
    system.systemId = 18446744073709551615u;
    system.vendorId = 4294967295;
    system.systemName = "Head\xffset";
    system.graphicsProperties.maxSwapchainImageHeight = 1;
    system.graphicsProperties.maxSwapchainImageWidth = 2;
    system.graphicsProperties.maxLayerCount = 3;
    system.trackingProperties.orientationTracking = XR_TRUE;
    system.trackingProperties.positionTracking = 2;
    system.timestamp = kTime;
    ContextManager::instance().setSystemState(system);
    LogCapture log;
    EXPECT_EQ(Answer(make_openxr_get_system_info_tool_entry, "[]"),
              R"({"system_id":18446744073709551615,"vendor_id":4294967295,"system_name":"Head)"
              "\xEF\xBF\xBD"
              R"(set","graphics_properties":{"max_swapchain_image_height":1,"max_swapchain_image_width":2,)"
              R"("max_layer_count":3},"tracking_properties":{"orientation_tracking":true,"position_tracking":false},)"
              R"("timestamp_utc":)" TIME_TEXT "}");
    EXPECT_THAT(log.take(), ElementsAre("INFO openxr_get_system_info tool called, isValid=true",
                                        "INFO openxr_get_system_info: returning cached system data"));
}

FrameState Frame(XrTime display_time) {
    FrameState frame;
    frame.valid = true;
    frame.session = HandleFromValue<XrSession>(0x2A);
    frame.predictedDisplayTime = 1'234'567'890'123;
    frame.predictedDisplayPeriod = 13'888'888;
    frame.shouldRender = XR_TRUE;
    frame.displayTime = display_time;
    frame.environmentBlendMode = XR_ENVIRONMENT_BLEND_MODE_ALPHA_BLEND;
    frame.layers = {{XR_TYPE_COMPOSITION_LAYER_PROJECTION, 5}, {static_cast<XrStructureType>(36000), 1ull << 63}};
    frame.waitFrameTime = kTime;
    frame.beginFrameTime = kTime;
    frame.endFrameTime = kTime;
    return frame;
}

std::string FrameText(const std::string& display_time) {
    return R"("frame_state":{"predicted_display_time":{"XrTime":1234567890123,"time_in_seconds":1234.5679},)"
           R"("predicted_display_period":{"XrDuration":13888888,"duration_in_seconds":0.0139},"should_render":true},)"
           R"("frame_end_info":{"display_time":)" +
           display_time +
           R"(,"environment_blend_mode":"XR_ENVIRONMENT_BLEND_MODE_ALPHA_BLEND",)"
           R"("layers":[{"type":"XR_TYPE_COMPOSITION_LAYER_PROJECTION","flags":5},)"
           R"({"type":"XR_TYPE_UNKNOWN","flags":9223372036854775808}],"layer_count":2},)"
           R"("frame_timing":{"wait_frame_timestamp":)" TIME_TEXT R"(,"begin_frame_timestamp":)" TIME_TEXT
           R"(,"end_frame_timestamp":)" TIME_TEXT "}";
}

TEST_F(InfoTools, GiveTheFrameAndItsHistory) {
    ContextManager::instance().updateFrameState(Frame(1'000'000'000));
    ContextManager::instance().updateFrameState(Frame(-2'500'000'000));
    const std::string older = FrameText(R"({"XrTime":1000000000,"time_in_seconds":1.0})");
    const std::string newer = FrameText(R"({"XrTime":-2500000000,"time_in_seconds":-2.5})");
    const std::string shown = newer + R"(,"session":{"handle":"42","handle_hex":"0x2a"})";
    EXPECT_EQ(Answer(make_openxr_get_frame_info_tool_entry, R"({"include_history": 1})"), "{" + shown + "}");
    LogCapture log;
    EXPECT_EQ(Answer(make_openxr_get_frame_info_tool_entry, R"({"include_history": true})"),
              "{" + shown + R"(,"history":[{)" + older + "},{" + newer + "}]}");
    EXPECT_THAT(log.take(), ElementsAre("INFO openxr_get_frame_info tool called, frameValid=true",
                                        "INFO openxr_get_frame_info: returning cached frame data",
                                        "INFO openxr_get_frame_info: included history with 2 entries"));
}

TEST_F(InfoTools, GiveAFrameWithoutLayers) {
    FrameState frame = Frame(1);
    frame.layers.clear();
    frame.shouldRender = XR_FALSE;
    ContextManager::instance().updateFrameState(frame);
    const std::string answer = Answer(make_openxr_get_frame_info_tool_entry, "{}");
    EXPECT_THAT(answer, testing::HasSubstr(R"("should_render":false)"));
    EXPECT_THAT(answer, testing::HasSubstr(R"("environment_blend_mode":"XR_ENVIRONMENT_BLEND_MODE_ALPHA_BLEND",)"
                                           R"("layers":[],"layer_count":0})"));
}

TEST(InfoToolSchemas, AreWrittenInWireOrder) {
    EXPECT_EQ(mcp::dump_json(make_openxr_get_instance_info_tool_entry().tool.input_schema),
              R"({"properties":{)"
              R"("include_api_layers":{"type":"boolean","description":"Whether to include the enabled API layers"},)"
              R"("include_enabled_extensions":{"type":"boolean","description":"Whether to include the enabled )"
              R"(extensions"},)"
              R"("include_available_extensions":{"type":"boolean","description":"Whether to include the available )"
              R"(extensions to the current OpenXR instance"}},"type":"object","additionalProperties":false})");
    EXPECT_EQ(mcp::dump_json(make_openxr_exit_session_tool_entry().tool.input_schema),
              R"({"properties":{"session_handle":{"type":"number","description":"The XR session handle to terminate. )"
              R"(Optional — if not provided, uses the current active session."}},)"
              R"("type":"object","additionalProperties":false})");
}

TEST(InfoToolHints, TellWhatAToolDoes) {
    // Read only, destructive, idempotent, open world.
    const std::vector<std::pair<ToolEntry (*)(), std::string>> rows = {
        {make_openxr_get_instance_info_tool_entry, "1010"}, {make_openxr_get_session_info_tool_entry, "1000"},
        {make_openxr_get_system_info_tool_entry, "1010"},   {make_openxr_get_frame_info_tool_entry, "1000"},
        {make_openxr_exit_session_tool_entry, "0111"},
    };
    for (const auto& [make, hints] : rows) {
        const mcp::tool tool = make().tool;
        std::string given;
        for (const bool hint :
             {tool.read_only_hint, tool.destructive_hint, tool.idempotent_hint, tool.open_world_hint}) {
            given += hint ? '1' : '0';
        }
        EXPECT_EQ(given, hints) << tool.name;
    }
}

}  // namespace
}  // namespace orvanic_xr
