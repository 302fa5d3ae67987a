#include "tools/simulation/pose_animation_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <future>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "diagnostics/clock.h"
#include "diagnostics/logger.h"
#include "tests/fakes/log_capture.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::FloatEq;
using testing::FloatNear;

constexpr XrPosef kStart = {{0, 0, 0, 1}, {0, 0, 0}};
constexpr XrPosef kEnd = {{0, 0, 0, 1}, {2, 0, -4}};

class PoseAnimations : public testing::Test {
 protected:
    std::future<AnimationResult> Start(const std::string& name, float duration, std::vector<float>& seen) {
        ActiveAnimation animation;
        animation.name = name;
        animation.start_pose = kStart;
        animation.end_pose = kEnd;
        animation.duration_seconds = duration;
        animation.apply = [&seen](const XrPosef& pose) {
            seen.push_back(pose.position.x);
            return true;
        };
        return manager_.StartAnimation(std::move(animation));
    }

    static bool Ready(const std::future<AnimationResult>& outcome) {
        return outcome.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }

    FakeClock clock_{0, 5'000'000'000};
    LogCapture log_;
    PoseAnimationManager manager_;
};

TEST_F(PoseAnimations, StepWithTheClockAndEndOnTheEndPose) {
    std::vector<float> seen;
    auto outcome = Start("/user/head", 2.0f, seen);
    manager_.Tick();
    clock_.Advance(500'000'000);
    manager_.Tick();
    EXPECT_FALSE(Ready(outcome));
    clock_.Advance(9'000'000'000);  // far past the end: the end pose, once
    manager_.Tick();
    manager_.Tick();
    EXPECT_THAT(seen, ElementsAre(FloatEq(0.0f), FloatEq(0.5f), FloatEq(2.0f)));
    ASSERT_TRUE(Ready(outcome));
    EXPECT_EQ(outcome.get(), AnimationCompleted);
    EXPECT_THAT(log_.take(),
                ElementsAre("INFO PoseAnimationManager: Started animation for /user/head (duration=2.000000s)",
                            "INFO PoseAnimationManager: Animation completed for /user/head"));
}

TEST_F(PoseAnimations, GiveWayToANewerOneOfTheSameNameOnly) {
    std::vector<float> head, newer, hand;
    auto first = Start("head", 1.0f, head);
    auto other = Start("hand", 1.0f, hand);
    log_.take();
    auto second = Start("head", 1.0f, newer);
    EXPECT_EQ(first.get(), AnimationSuperseded);
    EXPECT_THAT(log_.take(), ElementsAre("INFO PoseAnimationManager: Cancelling existing animation for head",
                                         "WARNING PoseAnimationManager: head superseded by a newer animation",
                                         "INFO PoseAnimationManager: Started animation for head (duration=1.000000s)"));
    clock_.Advance(1'000'000'000);
    manager_.Tick();
    EXPECT_TRUE(head.empty());
    EXPECT_EQ(second.get(), AnimationCompleted);
    EXPECT_EQ(other.get(), AnimationCompleted);
}

TEST_F(PoseAnimations, KeepNoFrameWaitingForALogLine) {
    struct FrameMeanwhile : LogObserver {
        explicit FrameMeanwhile(PoseAnimationManager& animations) : manager(animations) {}
        void OnLogLine(std::int32_t, std::string_view) override {
            frames.push_back(std::async(std::launch::async, [this] { manager.Tick(); }));
            EXPECT_EQ(frames.back().wait_for(std::chrono::seconds(2)), std::future_status::ready);
        }
        PoseAnimationManager& manager;
        std::vector<std::future<void>> frames;
    } meanwhile(manager_);
    std::vector<float> seen;
    Logger::instance().set_observer(&meanwhile);
    Start("head", 1.0f, seen);
    Start("head", 1.0f, seen);
    manager_.CancelAll("the test");
    Logger::instance().set_observer(nullptr);
    EXPECT_EQ(meanwhile.frames.size(), 6u);
}

// The new animation takes the name while the old one, in its last step, is being applied: the tick then clears
// the old one away and must leave the new one in its place.
TEST_F(PoseAnimations, SurviveTheTickThatEndsTheirPredecessor) {
    std::vector<float> seen;
    std::future<AnimationResult> newer;
    ActiveAnimation old;
    old.name = "head";
    old.apply = [&](const XrPosef&) {
        newer = Start("head", 1.0f, seen);
        return true;
    };
    auto outcome = manager_.StartAnimation(std::move(old));
    manager_.Tick();
    EXPECT_EQ(outcome.get(), AnimationSuperseded);
    clock_.Advance(1'000'000'000);
    manager_.Tick();
    ASSERT_TRUE(Ready(newer));
    EXPECT_EQ(newer.get(), AnimationCompleted);
}

TEST(InterpolatePose, TurnsAlongTheShorterArc) {
    constexpr float kHalf = 0.70710678f;
    const struct {
        const char* name;
        XrQuaternionf from, to;
        float t;
        XrQuaternionf expected;
    } cases[] = {
        {"half of a quarter turn", {0, 0, 0, 1}, {0, kHalf, 0, kHalf}, 0.5f, {0, 0.38268343f, 0, 0.92387953f}},
        {"beyond the end", {0, 0, 0, 1}, {0, kHalf, 0, kHalf}, 7.0f, {0, kHalf, 0, kHalf}},
        {"before the start", {0, 0, 0, 1}, {0, kHalf, 0, kHalf}, -1.0f, {0, 0, 0, 1}},
        {"negated end", {0, 0, 0, 1}, {0, 0, 0, -1}, 0.5f, {0, 0, 0, 1}},
        {"negated end at the end", {0, 0, 0, 1}, {0, -kHalf, 0, -kHalf}, 1.0f, {0, kHalf, 0, kHalf}},
        {"not of unit length", {0, 0, 0, 4}, {0, 0, 0, 2}, 0.25f, {0, 0, 0, 1}},
        {"all zero", {0, 0, 0, 0}, {0, 0, 0, 0}, 0.5f, {0, 0, 0, 0}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        const XrQuaternionf q = InterpolatePose({row.from, {}}, {row.to, {}}, row.t).orientation;
        EXPECT_THAT(q.x, FloatNear(row.expected.x, 1e-6f));
        EXPECT_THAT(q.y, FloatNear(row.expected.y, 1e-6f));
        EXPECT_THAT(q.z, FloatNear(row.expected.z, 1e-6f));
        EXPECT_THAT(q.w, FloatNear(row.expected.w, 1e-6f));
    }
}

TEST(AnimationDeadline, IsTheDurationAndFiveSecondsWithinTheClock) {
    using std::chrono::milliseconds;
    using Clock = std::chrono::steady_clock;
    const auto before = Clock::now();
    const auto deadline = AnimationDeadline(2.0f);
    EXPECT_GE(deadline - before, milliseconds(7000));
    EXPECT_LE(deadline - Clock::now(), milliseconds(7000));
    for (const float endless : {1e12f, 3.4e38f, INFINITY})
        EXPECT_EQ(AnimationDeadline(endless), Clock::time_point::max());
}

}  // namespace
}  // namespace orvanic_xr
