// What the hooks learn about the application, as plain records. The field names are also the vocabulary of
// the tools. Wall-clock times are nanoseconds of the system clock.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace orvanic_xr {

class IToolRegistry;

struct InstanceState {
    bool valid = false;
    std::string applicationName;
    std::uint32_t applicationVersion = 0;
    std::string engineName;
    std::uint32_t engineVersion = 0;
    XrVersion apiVersion = 0;
    std::int64_t createdAt = 0;
    std::vector<std::string> enabledApiLayers;
    std::set<std::string> enabledExtensions;    // what went down to the runtime
    std::set<std::string> availableExtensions;  // what the runtime offered
    bool externalToolExtensionEnabled = false;
    XrInstance instance = XR_NULL_HANDLE;
    IToolRegistry* toolRegistry = nullptr;  // not owned; null when no server runs
};

struct SessionState {
    bool valid = false;  // from xrCreateSession to xrDestroySession
    XrSession session = XR_NULL_HANDLE;
    XrSessionState state = XR_SESSION_STATE_UNKNOWN;
    std::int64_t timestamp = 0;            // of the last update
    std::uint64_t generation = 0;          // how many sessions became current; kept by ContextManager
    std::int64_t generationStartTime = 0;  // of the last generation change; kept by ContextManager
};

struct SessionStateHistoryEntry {
    XrSession session = XR_NULL_HANDLE;
    XrSessionState state = XR_SESSION_STATE_UNKNOWN;
    std::int64_t timestamp = 0;
};

struct SystemState {
    bool valid = false;
    XrSystemId systemId = XR_NULL_SYSTEM_ID;
    std::uint32_t vendorId = 0;
    std::string systemName;
    XrSystemGraphicsProperties graphicsProperties{};
    XrSystemTrackingProperties trackingProperties{};
    std::int64_t timestamp = 0;  // of the read
};

struct LayerSummary {
    XrStructureType type = XR_TYPE_UNKNOWN;
    XrCompositionLayerFlags layerFlags = 0;
};

struct FrameHistoryEntry {
    XrTime predictedDisplayTime = 0;
    XrDuration predictedDisplayPeriod = 0;
    XrBool32 shouldRender = XR_FALSE;
    XrTime displayTime = 0;  // as the application passed it to xrEndFrame
    XrEnvironmentBlendMode environmentBlendMode = XR_ENVIRONMENT_BLEND_MODE_OPAQUE;
    std::vector<LayerSummary> layers;
    // When the three hooks of the frame were entered.
    std::int64_t waitFrameTime = 0;
    std::int64_t beginFrameTime = 0;
    std::int64_t endFrameTime = 0;
};

struct FrameState : FrameHistoryEntry {
    bool valid = false;
    XrSession session = XR_NULL_HANDLE;
};

}  // namespace orvanic_xr
