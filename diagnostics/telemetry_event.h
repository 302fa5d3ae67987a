#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvanic_xr {

enum class TelemetryEventId : std::int32_t {
    kApplicationInfo = 0,
    kClosing = 1,
    kSessionCreated = 2,
    kSessionEnded = 3,
    kServerStarted = 4,
    kServerStopped = 5,
    kToolStart = 6,
    kToolFinish = 7,
    kClientConnected = 8,
    kFirstToolCall = 9,
    kError = 10,
};

// What an implementation is told with each event. The fields that the event has no use for are empty.
struct TelemetryEvent {
    std::string telemetry_session_id;  // drawn anew by each Telemetry::initialize
    std::uint32_t sequence = 0;        // counts the events since then, from 0
    std::string machine_id;
    std::string platform;
    std::string project_id;
    std::string timestamp;        // wall clock in UTC
    std::int64_t elapsed_ms = 0;  // since Telemetry::initialize
    bool has_detail = false;
    std::string version_text;
    std::string annotations = "{}";  // one JSON object
    std::string client_name;
    std::string tool_name;        // tool events
    std::string reason;           // tool start; free text of an agent, withheld on request
    std::string sentiment;        // tool start
    bool success = false;         // tool finish
    std::int64_t latency_ms = 0;  // tool finish
    std::string error_category;   // error
    std::string error_code;       // error
};

// "2026-01-02+03:04:05", UTC, whole seconds.
std::string TelemetryTimestamp(std::int64_t system_ns);

// Five random 32-bit values in the form of a version 4 UUID.
std::string NewTelemetrySessionId();

// Appends `text` in quotes, escaped as JSON asks for.
void AppendJsonString(std::string& json, std::string_view text);

}  // namespace orvanic_xr
