#include "examples/velmoor_demo/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace demo {
namespace {

// Frames in a hurry after a late one show the same pose, and yet the thing still moves.
constexpr int kFramesAtRest = 6;

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

float Distance(const XrVector3f& a, const XrVector3f& b) {
    return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z);
}

// Whether two poses differ by more than so many metres, or so many radians (if they are few) of direction.
bool Differ(const XrPosef& a, const XrPosef& b, float metres, float radians) {
    return Distance(a.position, b.position) > metres ||
           Distance(Forward(a.orientation), Forward(b.orientation)) > radians;
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

bool Mover::Take(const std::optional<XrPosef>& pose) {
    const bool moves = pose && (!before_ || Differ(*pose, *before_, 0.001f, 0.002f));
    still_frames_ = moves ? 0 : still_frames_ + 1;
    before_ = pose;
    const bool elsewhere = pose.has_value() != told_.has_value() || (pose && Differ(*pose, *told_, 0.1f, 0.15f));
    if (!elsewhere || still_frames_ < kFramesAtRest) return false;
    told_ = pose;
    return true;
}

void Report::Line(const std::string& text) {
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

void Report::FrameBegins(XrTime shown, XrDuration period) {
    if (frame_before_ && period > 0) {
        const std::int64_t due = std::max<std::int64_t>(1, (shown - *frame_before_ + period / 2) / period);
        frames_due_ += due;
        frames_missed_ += due - 1;
    }
    frame_before_ = shown;
}

void Report::Frame(const std::optional<XrPosef>& head, const std::array<HandState, 2>& hands) {
    ++frames_;
    head_ = head;
    if (head_mover_.Take(head)) Line("  * head " + Pose(head, "looking"));
    for (std::size_t hand = 0; hand < hands.size(); ++hand) PrintChanges(hand, hands[hand]);
    for (std::size_t hand = 0; hand < hands.size(); ++hand) {
        if (!hand_movers_[hand].Take(hands[hand].aim)) continue;
        Line(std::string("  * ") + kHandNames[hand] + " pointer " + Pose(hands[hand].aim, "towards"));
    }
    hands_ = hands;
}

void Report::Play(const Game::Standing& standing) {
    if (standing.score != standing_.score) Line("  * the score is " + std::to_string(standing.score));
    if (standing.weather != standing_.weather) Line("  * the weather is " + standing.weather);
    if (standing.cubes > standing_.cubes) Line("  * cube " + std::to_string(standing.cubes) + " is there");
    standing_ = standing;
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
    if (!last_report_) {
        last_report_ = seconds;
        frames_ = 0;
    }
    const double passed = seconds - *last_report_;
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
