#include "diagnostics/telemetry.h"

#include <fmt/format.h>

#include <cstdlib>
#include <utility>

#include "diagnostics/clock.h"
#include "diagnostics/logger.h"
#include "diagnostics/machine_id.h"

namespace orvanic_xr {

namespace {

struct ShutdownAtExit {
    ~ShutdownAtExit() { Telemetry::instance().shutdown(); }
};

// No failure of telemetry reaches a caller.
template <typename Work>
void Quietly(const Work& work) noexcept {
    try {
        work();
    } catch (...) {
    }
}

}  // namespace

void NoopTelemetryImpl::initialize(const std::string&, const std::string&, int) {
    LogInfo("Telemetry is disabled. Events will not be tracked.");
}

Telemetry::Telemetry() : Telemetry(std::make_unique<NoopTelemetryImpl>()) {}

Telemetry::Telemetry(std::unique_ptr<ITelemetry> implementation) : implementation_(std::move(implementation)) {}

Telemetry::~Telemetry() {
    shutdown();
}

Telemetry& Telemetry::instance() {
    static Telemetry& the = *new Telemetry;  // never destroyed: threads may call while static destructors run
    static const ShutdownAtExit shutdown_at_exit;
    return the;
}

std::unique_ptr<ITelemetry> Telemetry::set_implementation(std::unique_ptr<ITelemetry> implementation) {
    const std::lock_guard lock(mutex_);
    return std::exchange(implementation_, std::move(implementation));
}

template <typename Fill>
void Telemetry::SendLocked(TelemetryEventId id, const std::string& text, const Fill& fill) {
    if (!initialized_) return;
    TelemetryEvent event = NextEventLocked();
    fill(event);
    implementation_->track(id, event, text);
}

template <typename Fill>
void Telemetry::Send(TelemetryEventId id, const std::string& text, const Fill& fill) noexcept {
    Quietly([&] {
        const std::lock_guard lock(mutex_);
        SendLocked(id, text, fill);
    });
}

void Telemetry::Send(TelemetryEventId id, const std::string& text) noexcept {
    Send(id, text, [](TelemetryEvent&) {});
}

void Telemetry::set_application_info(std::string_view application_name, std::uint32_t application_version,
                                     std::string_view engine_name, std::uint32_t engine_version,
                                     std::uint64_t api_version) noexcept {
    Quietly([&] {
        {
            const std::lock_guard lock(mutex_);
            application_name_ = application_name;
            application_version_ = application_version;
            engine_name_ = engine_name;
            engine_version_ = engine_version;
            api_version_ = api_version;
            application_info_set_ = true;
        }
        initialize(application_name, std::to_string(application_version));
        Send(TelemetryEventId::kApplicationInfo,
             fmt::format("app={},engine={},engine_ver={},api_ver={}", application_name, engine_name, engine_version,
                         api_version));
    });
}

void Telemetry::initialize(std::string_view application_name, std::string_view version_text) noexcept {
    Quietly([&] {
        const std::lock_guard lock(mutex_);
        if (initialized_) return;
        telemetry_session_id_ = NewTelemetrySessionId();
        sequence_ = 0;
        first_tool_call_sent_ = false;
        start_ns_ = MonotonicNanoseconds();
        version_text_ = version_text;
        const char* project = std::getenv("KEST_PROJECT_TELEMETRY_ID");
        project_id_ = project ? project : "";
        machine_id_ = Machineid::get_machine_id();
        implementation_->initialize(std::string(application_name), version_text_, 0);
        initialized_ = true;
        LogInfo("Telemetry initialized for: ", application_name);
    });
}

void Telemetry::close() noexcept {
    Send(TelemetryEventId::kClosing);
    Quietly([&] {
        const std::lock_guard lock(mutex_);
        application_info_set_ = false;
    });
    shutdown();
}

void Telemetry::shutdown() noexcept {
    Quietly([&] {
        const std::lock_guard lock(mutex_);
        if (!initialized_) return;
        initialized_ = false;
        implementation_->shutdown();
        LogInfo("Telemetry shut down");
    });
}

void Telemetry::session_created() noexcept {
    Send(TelemetryEventId::kSessionCreated);
}

void Telemetry::session_ended() noexcept {
    Send(TelemetryEventId::kSessionEnded);
}

void Telemetry::server_stopped() noexcept {
    Send(TelemetryEventId::kServerStopped);
}

void Telemetry::server_started(int port, std::size_t tools_registered, bool ipv4, bool ipv6) noexcept {
    Quietly([&] {
        Send(TelemetryEventId::kServerStarted,
             fmt::format("port={},tools_registered={},ipv4={},ipv6={}", port, tools_registered, ipv4, ipv6));
    });
}

void Telemetry::client_connected(std::string_view name, std::string_view version) noexcept {
    Quietly([&] {
        Send(TelemetryEventId::kClientConnected, fmt::format("client_name={},client_version={}", name, version));
    });
}

void Telemetry::set_client_name(std::string_view name) noexcept {
    Quietly([&] {
        const std::lock_guard lock(mutex_);
        client_name_ = name;
    });
}

void Telemetry::set_proxy_used(bool used) noexcept {
    proxy_used_.store(used, std::memory_order_relaxed);
}

void Telemetry::tool_start(std::string_view name, std::string_view category, std::string_view reason,
                           std::string_view sentiment) noexcept {
    Quietly([&] {
        const std::string text = fmt::format("tool={},tool_category={}", name, category);
        // Decided and sent under one lock, so that no other call's start can come before the first call's event.
        const std::lock_guard lock(mutex_);
        bool sent = false;
        if (first_tool_call_sent_.compare_exchange_strong(sent, true)) {
            SendLocked(TelemetryEventId::kFirstToolCall, text, [&](TelemetryEvent& event) { event.tool_name = name; });
        }
        SendLocked(TelemetryEventId::kToolStart, text, [&](TelemetryEvent& event) {
            event.tool_name = name;
            if (!ReasonWithheldLocked()) event.reason = reason;
            event.sentiment = sentiment;
        });
    });
}

void Telemetry::tool_finish(std::string_view name, std::int64_t latency_ms, bool success, std::string_view error_text,
                            std::string_view category) noexcept {
    Quietly([&] {
        std::string text =
            fmt::format("tool={},tool_category={},latency_ms={},success={}", name, category, latency_ms, success);
        if (!success && !error_text.empty()) text.append(",error_reason=").append(error_text);
        Send(TelemetryEventId::kToolFinish, text, [&](TelemetryEvent& event) {
            event.tool_name = name;
            event.success = success;
            event.latency_ms = latency_ms;
        });
        if (!success) error("tool", error_text == "exception" ? "exception" : "error", text);
    });
}

void Telemetry::error(std::string_view category, std::string_view code, std::string_view text) noexcept {
    Quietly([&] {
        Send(TelemetryEventId::kError, std::string(text), [&](TelemetryEvent& event) {
            event.error_category = category;
            event.error_code = code;
        });
    });
}

TelemetryEvent Telemetry::NextEventLocked() {
    constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
    TelemetryEvent event;
    event.telemetry_session_id = telemetry_session_id_;
    event.sequence = sequence_.fetch_add(1);
    event.machine_id = machine_id_;
    event.platform = "Linux";
    event.project_id = project_id_;
    event.timestamp = TelemetryTimestamp(SystemNanoseconds());
    event.elapsed_ms = (MonotonicNanoseconds() - start_ns_) / kNanosecondsPerMillisecond;
    event.version_text = version_text_;
    event.annotations = AnnotationsLocked();
    event.client_name = client_name_;
    return event;
}

std::string Telemetry::AnnotationsLocked() const {
    std::string json;
    json.reserve(128 + engine_name_.size());
    json += R"({"build_channel":"public")";
    if (application_info_set_) {
        json += R"(,"engine_name":)";
        AppendJsonString(json, engine_name_);
        json += R"(,"engine_version":")";
        json += std::to_string(engine_version_);
        json += '"';
    }
    json += proxy_used_.load(std::memory_order_relaxed) ? R"(,"proxy_used":true})" : R"(,"proxy_used":false})";
    return json;
}

bool Telemetry::ReasonWithheldLocked() {
    if (!reason_withheld_) {
        const char* value = std::getenv("ORVANICXR_DISABLE_REASON_TELEMETRY");
        reason_withheld_ = value && value[0] == '1';
    }
    return *reason_withheld_;
}

}  // namespace orvanic_xr
