#include "layer/frame_hooks.h"

#include <cstdint>
#include <utility>
#include <vector>

#include "context/records.h"
#include "diagnostics/clock.h"
#include "external/external_tool_manager.h"
#include "layer/hook_support.h"
#include "layer/pending_frames.h"
#include "tools/simulation/frame_clock.h"
#include "tools/simulation/pose_animation_manager.h"

namespace orvanic_xr {
namespace {

constexpr std::uint32_t kAtBeginFrame = 2;

// The one allocation of a frame.
std::vector<LayerSummary> SummariseLayers(const XrFrameEndInfo* end_info) {
    std::vector<LayerSummary> layers;
    if (!end_info || !end_info->layers || end_info->layerCount == 0) return layers;
    layers.reserve(end_info->layerCount);
    for (std::uint32_t i = 0; i < end_info->layerCount; ++i) {
        const XrCompositionLayerBaseHeader* layer = end_info->layers[i];
        if (layer) layers.push_back({layer->type, layer->layerFlags});
    }
    return layers;
}

}  // namespace

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrWaitFrame(XrSession session, const XrFrameWaitInfo* frameWaitInfo,
                                                       XrFrameState* frameState) {
    return GuardHook({"OrvanicLayerXrWaitFrame"}, [&] {
        PendingFrames::instance().Push(session, SystemNanoseconds());
        const auto wait_frame = NextFunction(&NextDispatchTable::WaitFrame, "xrWaitFrame");
        if (!wait_frame) return XR_ERROR_RUNTIME_FAILURE;
        const XrResult result = wait_frame(session, frameWaitInfo, frameState);
        PendingFrames::instance().MarkWaited(session, result, frameState);
        FrameClock& clock = FrameClock::instance();
        if (clock.is_on() && XR_SUCCEEDED(result) && frameState) {
            clock.Advance(frameState->predictedDisplayTime, frameState->predictedDisplayPeriod);
        }
        PoseAnimationManager::instance().Tick();
        return result;
    });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrBeginFrame(XrSession session, const XrFrameBeginInfo* frameBeginInfo) {
    return GuardHook({"OrvanicLayerXrBeginFrame"}, [&] {
        const bool begun = PendingFrames::instance().MarkBegun(session, SystemNanoseconds());
        const auto begin_frame = NextFunction(&NextDispatchTable::BeginFrame, "xrBeginFrame");
        if (!begin_frame) return XR_ERROR_RUNTIME_FAILURE;
        const XrResult result = begin_frame(session, frameBeginInfo);
        if (begun && result != XR_SUCCESS) PendingFrames::instance().SettleBegun(session, result);
        ExternalToolManager::instance().ProcessDeferredCallbacks(kAtBeginFrame);
        return result;
    });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrEndFrame(XrSession session, const XrFrameEndInfo* frameEndInfo) {
    return GuardHook({"OrvanicLayerXrEndFrame"}, [&] {
        PendingFrames::instance().MarkEnded(SystemNanoseconds());
        std::vector<LayerSummary> layers = SummariseLayers(frameEndInfo);
        const auto end_frame = NextFunction(&NextDispatchTable::EndFrame, "xrEndFrame");
        if (!end_frame) return XR_ERROR_RUNTIME_FAILURE;
        const XrResult result = end_frame(session, frameEndInfo);
        if (XR_FAILED(result)) return result;
        PendingFrames::instance().Complete(session, frameEndInfo, std::move(layers));
        return result;
    });
}

}  // namespace orvanic_xr
