#include "simulator/happenings.h"

#include <cmath>
#include <iterator>
#include <stdexcept>

#include "simulator/extensions.h"
#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/session.h"
#include "simulator/spaces.h"
#include "simulator/views.h"

namespace simulator {
namespace {

void Recentre(Session& session) {
    const XrTime now = Now();
    const XrTime change = session.frames.LatestDisplayTime(now) + session.frames.period();
    const auto head = HeadPose(session, now);
    if (!head) throw std::runtime_error("the head is nowhere");
    // Level, and turned as the head is: half of the angle around y.
    const double turn = std::atan2(static_cast<double>(head->orientation.y), static_cast<double>(head->orientation.w));
    const XrPosef here = {{0, static_cast<float>(std::sin(turn)), 0, static_cast<float>(std::cos(turn))},
                          head->position};
    const XrPosef before = session.local.At(change);
    session.local = {before, here, change};
    const auto tell = [&](XrReferenceSpaceType type) {
        session.instance->events.Push(
            XrEventDataReferenceSpaceChangePending{XR_TYPE_EVENT_DATA_REFERENCE_SPACE_CHANGE_PENDING, nullptr,
                                                   session.handle, type, change, XR_TRUE, RelativePose(here, before)});
    };
    tell(XR_REFERENCE_SPACE_TYPE_LOCAL);
    const Instance& instance = *session.instance;
    if (instance.api_version >= kVersion11 || instance.HasExtension(kLocalFloor)) {
        tell(XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR);
    }
}

struct SessionEvent {
    const char* name;
    void (*happen)(Session&);
};
constexpr SessionEvent kSessionEvents[] = {
    {"focus_lost", [](Session& session) { session.has_focus = false; }},
    {"focus_gained", [](Session& session) { session.has_focus = true; }},
    {"headset_off", [](Session& session) { session.is_worn = false; }},
    {"headset_on", [](Session& session) { session.is_worn = true; }},
    {"session_loss", [](Session& session) { session.Enter(XR_SESSION_STATE_LOSS_PENDING); }},
    {"recentre", Recentre},
};

struct ControllerEvent {
    const char* name;
    void (*happen)(Device&);
};
constexpr ControllerEvent kControllerEvents[] = {
    {"tracking_lost", [](Device& device) { device.is_lost = true; }},
    {"tracking_found", [](Device& device) { device.is_lost = false; }},
    {"controller_asleep", [](Device& device) { device.is_asleep = true; }},
    {"controller_awake", [](Device& device) { device.is_asleep = false; }},
};

Device& ControllerOf(Session& session, const std::string& hand) {
    if (hand != "left" && hand != "right") throw std::runtime_error("hand must be left or right");
    Device& device = session.devices[hand == "left" ? TopLevel::kLeftHand : TopLevel::kRightHand];
    if (!device.IsActive()) throw std::runtime_error("there is no " + hand + " controller: nobody has moved it yet");
    return device;
}

}  // namespace

void Happen(Session& session, const std::string& event, const std::string& hand) {
    std::string known;
    for (const SessionEvent& row : kSessionEvents) {
        known.append(known.empty() ? "" : ", ").append(row.name);
        if (event != row.name) continue;
        row.happen(session);
        if (!session.graphics) session.Settle();
        return;
    }
    for (const ControllerEvent& row : kControllerEvents) {
        known.append(", ").append(row.name);
        if (event == row.name) return row.happen(ControllerOf(session, hand));
    }
    throw std::runtime_error("event must be one of " + known);
}

}  // namespace simulator
