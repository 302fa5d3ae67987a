#include "tools/simulation/frame_demand.h"

#include <chrono>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "layer/dispatch/dispatch.h"
#include "tools/simulation/frame_clock.h"
#include "xr/simulator_frame_demand.h"

namespace orvanic_xr {
namespace {

constexpr std::chrono::seconds kLongestRest(1);
constexpr std::chrono::microseconds kBetweenLooks(200);

}  // namespace

struct FrameNeed::Demand {
    std::shared_ptr<SessionContext> session;
    PFN_xrChangeSimulatorFrameDemandKESTX1 change = nullptr;
    std::mutex mutex;  // guards what follows
    bool is_open = false;
    bool has_ended = false;

    // The session may be gone, and its demand with it.
    XrResult Change(std::int32_t by) const {
        const auto pass = session->EnterRuntime();
        return pass ? change(session->session, by) : XR_ERROR_HANDLE_INVALID;
    }
};

FrameNeed::FrameNeed(XrSession session) {
    if (!FrameClock::instance().is_on()) return;
    auto demand = std::make_shared<Demand>();
    demand->session = ContextManager::instance().getSessionContext(session);
    demand->change = DispatchHolder::instance().Resolve<PFN_xrChangeSimulatorFrameDemandKESTX1>(
        "xrChangeSimulatorFrameDemandKESTX1");
    if (demand->session && demand->change) demand_ = std::move(demand);
}

void FrameNeed::Begin() const noexcept {
    if (!demand_) return;
    const std::lock_guard lock(demand_->mutex);
    if (!demand_->has_ended && !demand_->is_open) demand_->is_open = XR_SUCCEEDED(demand_->Change(1));
}

void FrameNeed::End() const noexcept {
    if (!demand_) return;
    const std::lock_guard lock(demand_->mutex);
    demand_->has_ended = true;
    if (std::exchange(demand_->is_open, false)) demand_->Change(-1);
}

void FrameNeed::Rest() const noexcept {
    if (!demand_) return;
    const auto deadline = std::chrono::steady_clock::now() + kLongestRest;
    while (demand_->Change(0) == XR_TIMEOUT_EXPIRED && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(kBetweenLooks);
    }
}

}  // namespace orvanic_xr
