// XR_KESTX1_simulator_compositor_output_capture: called by a layer above, on a tool's thread.
#include <mutex>
#include <vector>

#include "automation/guard.h"
#include "automation/hooks.h"
#include "automation/session.h"

namespace automation {
namespace {

// What the runtime recommends for the first view, which is the left one. Nothing of it where it does not tell.
XrExtent2Di RecommendedSize(const Session& session) {
    const Instance& instance = *session.instance;
    std::uint32_t count = 0;
    const auto ask = [&](std::uint32_t capacity, XrViewConfigurationView* views) {
        return instance.next.EnumerateViewConfigurationViews(instance.handle, session.system,
                                                             session.view_configuration, capacity, &count, views);
    };
    if (XR_FAILED(ask(0, nullptr)) || count == 0) return {};
    XrViewConfigurationView empty = {};
    empty.type = XR_TYPE_VIEW_CONFIGURATION_VIEW;
    std::vector<XrViewConfigurationView> views(count, empty);
    if (XR_FAILED(ask(count, views.data()))) return {};
    return {static_cast<std::int32_t>(views[0].recommendedImageRectWidth),
            static_cast<std::int32_t>(views[0].recommendedImageRectHeight)};
}

// `call(session)` for one that runs and draws.
template <class Call>
XrResult ForDrawingSession(XrSession session, Call call) {
    const auto owner = Registry::instance().Find(session);
    if (!owner) return XR_ERROR_HANDLE_INVALID;
    if (!owner->running) return XR_ERROR_SESSION_NOT_RUNNING;
    if (!owner->pictures) {
        static std::once_flag told;
        std::call_once(told, [] {
            orvanic_xr::LogWarning(
                "Automation: there are no pictures of a session that draws nothing, or not with a "
                "graphics interface that is known");
        });
        return XR_ERROR_FEATURE_UNSUPPORTED;
    }
    return call(*owner);
}

}  // namespace

XrResult StartSimulatorCompositorOutputCaptureKESTX1(XrSession session, std::uint32_t eyes) {
    return Guarded([&] {
        return ForDrawingSession(session, [&](Session& owner) {
            // Where the layers of its frames are, is told in these.
            if (const XrResult result = owner.MakeSpaces(); XR_FAILED(result)) return result;
            return owner.pictures->Start(eyes, RecommendedSize(owner));
        });
    });
}

XrResult StopSimulatorCompositorOutputCaptureKESTX1(XrSession session) {
    return Guarded([&] { return ForDrawingSession(session, [](Session& owner) { return owner.pictures->Stop(); }); });
}

XrResult CaptureSimulatorCompositorOutputKESTX1(XrSession session, orvanic_xr::SimulatorCompositorCaptureInfo* info) {
    return Guarded(
        [&] { return ForDrawingSession(session, [&](Session& owner) { return owner.pictures->Capture(info); }); });
}

}  // namespace automation
