// Telemetry as a list of lines, so that a test says what must be told and in which order.
#pragma once

#include <string>
#include <vector>

#include "diagnostics/telemetry.h"

namespace orvanic_xr {

// An event as "<number> #<id> <fields that are filled> | <text>". The list is touched under Telemetry's mutex.
class ListingTelemetry : public ITelemetry {
 public:
    explicit ListingTelemetry(std::vector<std::string>& events) : events_(events) {}
    void initialize(const std::string& name, const std::string& version, int reserved) override {
        events_.push_back("initialize " + name + " " + version + (reserved ? " reserved" : ""));
    }
    void shutdown() override { events_.push_back("shutdown"); }
    void track(TelemetryEventId id, const TelemetryEvent& event, const std::string& text) override {
        std::string line = std::to_string(event.sequence) + " #" + std::to_string(static_cast<int>(id));
        const auto add = [&line](const char* key, const std::string& value) {
            if (!value.empty()) line += std::string(" ") + key + "=" + value;
        };
        add("client", event.client_name);
        add("tool", event.tool_name);
        add("reason", event.reason);
        add("sentiment", event.sentiment);
        add("error", event.error_category.empty() ? "" : event.error_category + "/" + event.error_code);
        if (id == TelemetryEventId::kToolFinish) line += event.success ? " ok" : " failed";
        events_.push_back(text.empty() ? line : line + " | " + text);
    }

 private:
    std::vector<std::string>& events_;
};

}  // namespace orvanic_xr
