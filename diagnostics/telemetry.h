#pragma once

// Tells an implementation about the layer's life: the application, its sessions, the server, clients, tool
// calls and errors. The only implementation there is drops everything; nothing leaves the process.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "diagnostics/telemetry_event.h"

namespace orvanic_xr {

// All calls come one at a time, under Telemetry's mutex: an implementation must not call Telemetry. What it
// throws goes no further.
class ITelemetry {
 public:
    virtual ~ITelemetry() = default;
    virtual void initialize(const std::string& application_name, const std::string& version_text, int reserved) = 0;
    virtual void shutdown() = 0;
    virtual void track(TelemetryEventId id, const TelemetryEvent& event, const std::string& text) = 0;
};

class NoopTelemetryImpl final : public ITelemetry {
 public:
    void initialize(const std::string& application_name, const std::string& version_text, int reserved) override;
    void shutdown() override {}
    void track(TelemetryEventId, const TelemetryEvent&, const std::string&) override {}
};

// Any thread; no operation throws. Before `initialize` and after `shutdown` events are dropped unnumbered.
class Telemetry {
 public:
    Telemetry();
    explicit Telemetry(std::unique_ptr<ITelemetry> implementation);
    ~Telemetry();
    Telemetry(const Telemetry&) = delete;
    Telemetry& operator=(const Telemetry&) = delete;

    static Telemetry& instance();

    // Puts another implementation in place of the present one, which is given back. For tests.
    std::unique_ptr<ITelemetry> set_implementation(std::unique_ptr<ITelemetry> implementation);

    // Also initializes, under the application's name and version. The versions are the application's own numbers.
    void set_application_info(std::string_view application_name, std::uint32_t application_version,
                              std::string_view engine_name, std::uint32_t engine_version,
                              std::uint64_t api_version) noexcept;
    void initialize(std::string_view application_name, std::string_view version_text) noexcept;
    void close() noexcept;
    void shutdown() noexcept;

    void session_created() noexcept;
    void session_ended() noexcept;
    void server_started(int port, std::size_t tools_registered, bool ipv4, bool ipv6) noexcept;
    void server_stopped() noexcept;
    void client_connected(std::string_view name, std::string_view version) noexcept;
    void set_client_name(std::string_view name) noexcept;
    void set_proxy_used(bool used) noexcept;

    // `category` is "openxr_builtin" or "external_unity". `reason` and `sentiment` are what the agent gave.
    void tool_start(std::string_view name, std::string_view category, std::string_view reason,
                    std::string_view sentiment) noexcept;
    // A failure has an `error_text`, "exception" if the tool threw, or an empty one.
    void tool_finish(std::string_view name, std::int64_t latency_ms, bool success, std::string_view error_text,
                     std::string_view category) noexcept;
    void error(std::string_view category, std::string_view code, std::string_view text = {}) noexcept;

 private:
    // Sends an event, whose own fields `fill` fills.
    template <typename Fill>
    void SendLocked(TelemetryEventId id, const std::string& text, const Fill& fill);
    template <typename Fill>
    void Send(TelemetryEventId id, const std::string& text, const Fill& fill) noexcept;
    void Send(TelemetryEventId id, const std::string& text = {}) noexcept;

    TelemetryEvent NextEventLocked();
    std::string AnnotationsLocked() const;
    bool ReasonWithheldLocked();

    std::unique_ptr<ITelemetry> implementation_;
    bool initialized_ = false;
    std::atomic<bool> first_tool_call_sent_{false};
    std::atomic<bool> proxy_used_{false};  // written without the mutex: a stale value shows in an annotation only
    bool application_info_set_ = false;

    std::mutex mutex_;  // everything but the atomics, and every call of implementation_
    std::string application_name_;
    std::string engine_name_;
    std::string client_name_;
    std::string telemetry_session_id_;
    std::string version_text_;
    std::string project_id_;
    std::string machine_id_;
    std::uint32_t application_version_ = 0;
    std::uint32_t engine_version_ = 0;
    std::uint64_t api_version_ = 0;
    std::atomic<std::uint32_t> sequence_{0};
    std::int64_t start_ns_ = 0;            // monotonic
    std::optional<bool> reason_withheld_;  // from the environment at first use, and then kept
};

}  // namespace orvanic_xr
