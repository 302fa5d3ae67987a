#include "tools/simulation/frame_demand.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "layer/dispatch/dispatch.h"
#include "tools/simulation/frame_clock.h"
#include "xr/simulator_frame_demand.h"

namespace orvanic_xr {
namespace {

struct Demand {
    std::shared_ptr<SessionContext> session;
    PFN_xrChangeSimulatorFrameDemandKESTX1 change;
    std::atomic<bool> is_open{true};
};

// The session may be gone, and its demand with it.
bool Change(const Demand& demand, std::int32_t by) {
    const auto pass = demand.session->EnterRuntime();
    return pass && XR_SUCCEEDED(demand.change(demand.session->session, by));
}

}  // namespace

std::function<void()> NeedFrames(XrSession session) {
    const auto nothing = [] {};
    if (!FrameClock::instance().is_on()) return nothing;
    const auto demand = std::make_shared<Demand>();
    demand->session = ContextManager::instance().getSessionContext(session);
    if (!demand->session) return nothing;
    demand->change = DispatchHolder::instance().Resolve<PFN_xrChangeSimulatorFrameDemandKESTX1>(
        "xrChangeSimulatorFrameDemandKESTX1");
    if (!demand->change || !Change(*demand, 1)) return nothing;
    return [demand] {
        if (demand->is_open.exchange(false)) Change(*demand, -1);
    };
}

}  // namespace orvanic_xr
