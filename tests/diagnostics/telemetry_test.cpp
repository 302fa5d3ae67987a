#include "diagnostics/telemetry.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "diagnostics/clock.h"
#include "diagnostics/log_file_sink.h"
#include "diagnostics/machine_id.h"
#include "tests/fakes/listing_telemetry.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/scratch.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// 2026-01-02 03:04:05.006 UTC
constexpr std::int64_t kStart = 1'767'323'045'006'000'000;
constexpr std::int64_t kMillisecond = 1'000'000;

// Keeps the events as they came, too.
class RecordingTelemetry final : public ListingTelemetry {
 public:
    RecordingTelemetry(std::vector<std::string>& calls, TelemetryEvent& last) : ListingTelemetry(calls), last_(last) {}
    void track(TelemetryEventId id, const TelemetryEvent& event, const std::string& text) override {
        last_ = event;
        ListingTelemetry::track(id, event, text);
    }

 private:
    TelemetryEvent& last_;
};

class FailingTelemetry final : public ITelemetry {
    void initialize(const std::string&, const std::string&, int) override {}
    void shutdown() override {}
    void track(TelemetryEventId, const TelemetryEvent&, const std::string&) override {
        throw std::runtime_error("no line");
    }
};

class TelemetryEvents : public testing::Test {
 protected:
    std::vector<std::string> TakeCalls() { return std::exchange(calls_, {}); }
    // The last event's own copy of what the singleton holds.
    const TelemetryEvent& Last() const { return last_; }
    std::unique_ptr<ITelemetry> Recorder() { return std::make_unique<RecordingTelemetry>(calls_, last_); }
    void StartApplication() { telemetry_.set_application_info("Demo", 7, "Engine", 42, 281474976710658); }

    FakeClock clock_{kStart, 5'000 * kMillisecond};
    ScopedVariable project_{"KEST_PROJECT_TELEMETRY_ID", "project-1"};
    ScopedVariable reason_switch_{"ORVANICXR_DISABLE_REASON_TELEMETRY", std::nullopt};
    Machineid::ScopedMachineId machine_{"machine-1"};
    LogCapture log_;
    std::vector<std::string> calls_;
    TelemetryEvent last_;
    Telemetry telemetry_{Recorder()};
};

TEST_F(TelemetryEvents, CarryWhatIsKnownOfTheProcess) {
    StartApplication();
    telemetry_.set_client_name("agent");
    telemetry_.set_proxy_used(true);
    clock_.Advance(1'999'999'999);
    telemetry_.session_created();
    EXPECT_EQ(Last().machine_id, "machine-1");
    EXPECT_EQ(Last().platform, "Linux");
    EXPECT_EQ(Last().project_id, "project-1");
    EXPECT_EQ(Last().timestamp, "2026-01-02+03:04:07");
    EXPECT_EQ(Last().elapsed_ms, 1999);
    EXPECT_FALSE(Last().has_detail);
    EXPECT_EQ(Last().version_text, "7");
    EXPECT_EQ(Last().client_name, "agent");
    EXPECT_EQ(Last().annotations,
              R"({"build_channel":"public","engine_name":"Engine","engine_version":"42","proxy_used":true})");
}

TEST_F(TelemetryEvents, OutsideALifeAreDroppedAndNotCounted) {
    telemetry_.session_created();
    telemetry_.tool_start("early", "openxr_builtin", "", "");
    telemetry_.close();
    EXPECT_THAT(TakeCalls(), IsEmpty());
    StartApplication();
    const std::string first_id = Last().telemetry_session_id;
    telemetry_.tool_start("one", "openxr_builtin", "", "");
    telemetry_.close();
    telemetry_.error("layer", "hook_exception");
    telemetry_.shutdown();
    TakeCalls();

    const ScopedVariable no_project("KEST_PROJECT_TELEMETRY_ID", std::nullopt);
    clock_.Advance(kMillisecond);
    StartApplication();
    telemetry_.tool_start("two", "openxr_builtin", "", "");
    EXPECT_THAT(TakeCalls(),
                ElementsAre("initialize Demo 7", "0 #0 | app=Demo,engine=Engine,engine_ver=42,api_ver=281474976710658",
                            "1 #9 tool=two | tool=two,tool_category=openxr_builtin",
                            "2 #6 tool=two | tool=two,tool_category=openxr_builtin"));
    EXPECT_NE(Last().telemetry_session_id, first_id);
    EXPECT_EQ(Last().project_id, "");
    EXPECT_EQ(Last().elapsed_ms, 0);
}

TEST_F(TelemetryEvents, OfAFailedToolTellExceptionsFromErrors) {
    const struct {
        const char* error_text;
        const char* code;
    } rows[] = {{"exception", "exception"}, {"exception: x", "error"}, {"Exception", "error"}, {"", "error"}};
    StartApplication();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error_text);
        telemetry_.tool_finish("t", 1, false, row.error_text, "openxr_builtin");
        EXPECT_EQ(Last().error_category, "tool");
        EXPECT_EQ(Last().error_code, row.code);
    }
}

TEST_F(TelemetryEvents, WithholdTheReasonAloneWhenAsked) {
    const struct {
        std::optional<std::string> value;
        const char* reason;
    } rows[] = {{std::nullopt, "why"}, {"", "why"}, {"0", "why"}, {"true", "why"},
                {"01", "why"},         {"1", ""},   {"1x", ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value.value_or("unset"));
        const ScopedVariable variable("ORVANICXR_DISABLE_REASON_TELEMETRY", row.value);
        Telemetry process(Recorder());
        process.initialize("Demo", "1");
        process.tool_start("t", "openxr_builtin", "why", "calm");
        EXPECT_EQ(Last().reason, row.reason);
        EXPECT_EQ(Last().sentiment, "calm");
        // The answer is kept for good.
        const ScopedVariable changed("ORVANICXR_DISABLE_REASON_TELEMETRY", row.reason[0] ? "1" : "0");
        process.tool_start("t", "openxr_builtin", "why", "calm");
        EXPECT_EQ(Last().reason, row.reason);
    }
}

TEST_F(TelemetryEvents, FailuresOfAnImplementationReachNoCaller) {
    StartApplication();
    const auto recorder = telemetry_.set_implementation(std::make_unique<FailingTelemetry>());
    telemetry_.tool_start("t", "c", "", "");
    telemetry_.tool_finish("t", 1, false, "exception", "c");
    TakeCalls();
    telemetry_.set_implementation(Recorder());
    telemetry_.session_ended();
    EXPECT_THAT(TakeCalls(), ElementsAre(testing::EndsWith(" #3")));
}

TEST(Telemetry, OfTheProcessShutsDownAtExitBeforeTheLogFileEnds) {
    const Machineid::ScopedMachineId machine("machine-1");
    const ScratchDirectory scratch;
    const ScopedVariable state_home("XDG_STATE_HOME", scratch.path());
    EXPECT_EXIT(
        {
            LogFileSink::instance().begin_session("s");
            Telemetry::instance().initialize("Demo", "1");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "enabled");
    const std::string text =
        ReadFile(scratch.path() + "/velmoor/logs/" + FilesBelow(scratch.path() + "/velmoor/logs")[0]);
    EXPECT_THAT(text, testing::HasSubstr("Telemetry shut down\n==== session ended at "));
}

}  // namespace
}  // namespace orvanic_xr
