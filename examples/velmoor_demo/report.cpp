#include "examples/velmoor_demo/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace demo {
namespace {

std::string Number(float value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.2f", static_cast<double>(std::fabs(value) < 0.005f ? 0.0f : value));
    return text;
}

std::string Vector(const XrVector3f& v) {
    return "(" + Number(v.x) + ", " + Number(v.y) + ", " + Number(v.z) + ")";
}

// The direction of -z in front of the pose.
XrVector3f Forward(const XrQuaternionf& q) {
    return {-2.0f * (q.x * q.z + q.w * q.y), -2.0f * (q.y * q.z - q.w * q.x), 2.0f * (q.x * q.x + q.y * q.y) - 1.0f};
}

std::string Pose(const std::optional<XrPosef>& pose, const char* towards) {
    if (!pose) return "not tracked";
    return "at " + Vector(pose->position) + " " + towards + " " + Vector(Forward(pose->orientation));
}

std::string Buttons(const HandState& hand) {
    if (hand.pressed.empty()) return "none";
    std::string text;
    for (const std::string& name : hand.pressed) text += (text.empty() ? "" : " ") + name;
    return text;
}

bool Contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool IsTilted(const XrVector2f& stick) {
    return std::hypot(stick.x, stick.y) > 0.1f;
}

std::string Hand(const HandState& hand) {
    if (!hand.grip && !hand.aim) return "not tracked";
    return "grip " + Pose(hand.grip, "facing") + ", aim " + Pose(hand.aim, "towards") + "\n           trigger " +
           Number(hand.trigger) + ", squeeze " + Number(hand.squeeze) + ", stick (" + Number(hand.thumbstick.x) + ", " +
           Number(hand.thumbstick.y) + "), buttons: " + Buttons(hand);
}

}  // namespace

const char* StateName(XrSessionState state) {
    switch (state) {
        case XR_SESSION_STATE_IDLE:
            return "IDLE";
        case XR_SESSION_STATE_READY:
            return "READY";
        case XR_SESSION_STATE_SYNCHRONIZED:
            return "SYNCHRONIZED";
        case XR_SESSION_STATE_VISIBLE:
            return "VISIBLE";
        case XR_SESSION_STATE_FOCUSED:
            return "FOCUSED";
        case XR_SESSION_STATE_STOPPING:
            return "STOPPING";
        case XR_SESSION_STATE_LOSS_PENDING:
            return "LOSS_PENDING";
        case XR_SESSION_STATE_EXITING:
            return "EXITING";
        default:
            return "UNKNOWN";
    }
}

void Report::Line(const std::string& text) {
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

void Report::FrameBegins(XrDuration period) {
    const auto now = std::chrono::steady_clock::now();
    if (frame_began_) {
        const std::chrono::duration<double, std::nano> interval = now - *frame_began_;
        const std::int64_t due =
            std::max<std::int64_t>(1, std::llround(interval.count() / static_cast<double>(period)));
        frames_due_ += due;
        frames_missed_ += due - 1;
    }
    frame_began_ = now;
}

void Report::Frame(const std::optional<XrPosef>& head, const std::array<HandState, 2>& hands) {
    ++frames_;
    head_ = head;
    for (std::size_t hand = 0; hand < hands.size(); ++hand) PrintChanges(hand, hands[hand]);
    hands_ = hands;
}

void Report::PrintChanges(std::size_t hand, const HandState& now) const {
    const HandState& before = hands_[hand];
    const std::string who = std::string("  * ") + kHandNames[hand] + " ";
    for (const std::string& name : now.pressed) {
        if (!Contains(before.pressed, name)) Line(who + name + " pressed");
    }
    for (const std::string& name : before.pressed) {
        if (!Contains(now.pressed, name)) Line(who + name + " released");
    }
    const bool pulled = now.trigger > 0.5f;
    if (pulled != (before.trigger > 0.5f)) {
        Line(who + (pulled ? "trigger pulled to " + Number(now.trigger) : "trigger let go"));
    }
    const bool tilted = IsTilted(now.thumbstick);
    if (tilted != IsTilted(before.thumbstick)) {
        Line(who + (tilted ? "stick tilted to (" + Number(now.thumbstick.x) + ", " + Number(now.thumbstick.y) + ")"
                           : "stick at rest"));
    }
}

void Report::OnceASecond(double seconds, XrSessionState state) {
    const double passed = seconds - last_report_;
    if (passed < 1.0) return;
    const auto frames_per_second = static_cast<float>(frames_ / passed);
    Line("[" + Number(static_cast<float>(seconds)) + " s] " + StateName(state) + ", " + Number(frames_per_second) +
         " frames a second; " + std::to_string(frames_missed_) + " of " + std::to_string(frames_due_) + " missed");
    Line("    head   " + Pose(head_, "looking"));
    for (std::size_t hand = 0; hand < hands_.size(); ++hand) {
        Line(std::string("    ") + kHandNames[hand] + (hand == 0 ? "   " : "  ") + Hand(hands_[hand]));
    }
    frames_ = 0;
    last_report_ = seconds;
}

}  // namespace demo
