#include "layer/frame_hooks.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "diagnostics/clock.h"
#include "external/external_tool.h"
#include "layer/pending_frames.h"
#include "layer/session_hooks.h"
#include "tests/fakes/allocation_counter.h"
#include "tests/layer/hook_fixture.h"
#include "tools/simulation/frame_clock.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FrameHooks : public HookFixture {
 protected:
    FrameHooks() { Renew(PendingFrames::instance()); }

    XrResult Wait() {
        XrFrameState state{};
        return OrvanicLayerXrWaitFrame(session_, nullptr, &state);
    }
    XrResult Begin() { return OrvanicLayerXrBeginFrame(session_, nullptr); }
    XrResult End(XrTime display_time = 77) {
        XrFrameEndInfo info{};
        info.displayTime = display_time;
        info.environmentBlendMode = XR_ENVIRONMENT_BLEND_MODE_ADDITIVE;
        return OrvanicLayerXrEndFrame(session_, &info);
    }
    XrResult RunFrame() {
        Wait();
        Begin();
        return End();
    }
    static FrameState Last() { return ContextManager::instance().getFrameState(); }
    // Ends all frames in flight; what they leave, oldest first.
    static std::vector<FrameState> EndAll(XrSession session) {
        for (std::vector<FrameState> ended;; ended.push_back(Last())) {
            ContextManager::instance().updateFrameState({});
            OrvanicLayerXrEndFrame(session, nullptr);
            if (!Last().valid) return ended;
        }
    }

    const XrSession session_ = OpenSession();
};

TEST_F(FrameHooks, FrameIsMeasuredAndKept) {
    FakeClock clock(100, 0);
    runtime_.should_render = XR_FALSE;
    runtime_.on("xrBeginFrame", [&](XrSession, const XrFrameBeginInfo*) {
        clock.Advance(1);  // what comes after the entry does not count
        return XR_SUCCESS;
    });
    Wait();
    clock.Advance(10);
    Begin();
    clock.Advance(20);
    EXPECT_EQ(End(1'000'000'005), XR_SUCCESS);

    const FrameState frame = Last();
    EXPECT_TRUE(frame.valid);
    EXPECT_EQ(frame.session, session_);
    EXPECT_EQ(frame.predictedDisplayTime, 1'000'000'000);
    EXPECT_EQ(frame.predictedDisplayPeriod, 10'000'000);
    EXPECT_EQ(frame.shouldRender, XrBool32{XR_FALSE});
    EXPECT_EQ(frame.displayTime, 1'000'000'005);
    EXPECT_EQ(frame.environmentBlendMode, XR_ENVIRONMENT_BLEND_MODE_ADDITIVE);
    EXPECT_EQ(frame.waitFrameTime, 100);
    EXPECT_EQ(frame.beginFrameTime, 110);
    EXPECT_EQ(frame.endFrameTime, 131);
    EXPECT_THAT(frame.layers, IsEmpty());
    EXPECT_EQ(ContextManager::instance().getFrameHistory().size(), 1u);
    EXPECT_THAT(runtime_.take_calls(), ElementsAre("xrWaitFrame(session1)", "xrBeginFrame(session1)",
                                                   "xrEndFrame(session1, displayTime=1000000005, layers=0)"));
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_THAT(EndAll(session_), IsEmpty());
}

TEST_F(FrameHooks, LayersAreSummarisedWithoutTheNullOnes) {
    XrCompositionLayerProjection projection{};
    projection.type = XR_TYPE_COMPOSITION_LAYER_PROJECTION;
    projection.layerFlags = XR_COMPOSITION_LAYER_BLEND_TEXTURE_SOURCE_ALPHA_BIT;
    XrCompositionLayerQuad quad{};
    quad.type = XR_TYPE_COMPOSITION_LAYER_QUAD;
    const std::array<const XrCompositionLayerBaseHeader*, 3> layers = {
        reinterpret_cast<const XrCompositionLayerBaseHeader*>(&projection), nullptr,
        reinterpret_cast<const XrCompositionLayerBaseHeader*>(&quad)};
    XrFrameEndInfo info{};
    info.layerCount = 3;
    info.layers = layers.data();
    Wait();
    EXPECT_EQ(OrvanicLayerXrEndFrame(session_, &info), XR_SUCCESS);
    const FrameState frame = Last();
    ASSERT_EQ(frame.layers.size(), 2u);
    EXPECT_EQ(frame.layers[0].type, XR_TYPE_COMPOSITION_LAYER_PROJECTION);
    EXPECT_EQ(frame.layers[0].layerFlags, XrCompositionLayerFlags{2});
    EXPECT_EQ(frame.layers[1].type, XR_TYPE_COMPOSITION_LAYER_QUAD);

    info.layers = nullptr;  // a count with no list behind it
    Wait();
    EXPECT_EQ(OrvanicLayerXrEndFrame(session_, &info), XR_SUCCESS);
    EXPECT_THAT(Last().layers, IsEmpty());
}

TEST_F(FrameHooks, NullArgumentsAreTheRuntimesToJudge) {
    EXPECT_EQ(OrvanicLayerXrWaitFrame(session_, nullptr, nullptr), XR_SUCCESS);
    EXPECT_EQ(Context(session_).CurrentLocateTime(), 0);
    EXPECT_EQ(OrvanicLayerXrEndFrame(session_, nullptr), XR_SUCCESS);
    EXPECT_TRUE(Last().valid);
    EXPECT_EQ(Last().displayTime, 0);
    EXPECT_EQ(Last().environmentBlendMode, XR_ENVIRONMENT_BLEND_MODE_OPAQUE);
}

TEST_F(FrameHooks, FailedWaitKeepsItsRecordAndPromisesNoTime) {
    runtime_.on("xrWaitFrame", [](XrSession, const XrFrameWaitInfo*, XrFrameState* state) {
        state->predictedDisplayTime = 5;  // what a failed call leaves there means nothing
        return XR_ERROR_SESSION_NOT_RUNNING;
    });
    EXPECT_EQ(Wait(), XR_ERROR_SESSION_NOT_RUNNING);
    runtime_.lack("xrWaitFrame");
    Wait();
    EXPECT_EQ(Context(session_).CurrentLocateTime(), 0);
    const auto ended = EndAll(session_);
    ASSERT_EQ(ended.size(), 2u);
    EXPECT_EQ(ended[0].predictedDisplayTime, 0);
}

TEST_F(FrameHooks, FailedEndKeepsTheFrameInFlight) {
    Wait();
    runtime_.answer("xrEndFrame", XR_ERROR_TIME_INVALID);
    EXPECT_EQ(End(), XR_ERROR_TIME_INVALID);
    EXPECT_FALSE(Last().valid);
    EXPECT_EQ(Context(session_).CurrentLocateTime(), 1'000'000'000);
    runtime_.answer("xrEndFrame", XR_SESSION_LOSS_PENDING);  // a success
    EXPECT_EQ(End(), XR_SESSION_LOSS_PENDING);
    EXPECT_TRUE(Last().valid);
    EXPECT_THAT(EndAll(session_), IsEmpty());
}

TEST_F(FrameHooks, EndWithoutAFrameInFlightIsForwardedAndChangesNothing) {
    EXPECT_EQ(End(), XR_SUCCESS);
    EXPECT_EQ(Begin(), XR_SUCCESS);
    EXPECT_FALSE(Last().valid);
    EXPECT_EQ(runtime_.take_calls().size(), 2u);
}

TEST_F(FrameHooks, OverlappingFramesTakeTimesOfTheNewestAndEndTheOldest) {
    FakeClock clock(100, 0);
    Wait();
    clock.Advance(1);
    Begin();
    clock.Advance(1);
    Wait();
    clock.Advance(1);
    Begin();
    clock.Advance(1);
    End();
    EXPECT_EQ(Last().waitFrameTime, 100);
    EXPECT_EQ(Last().beginFrameTime, 101);
    EXPECT_EQ(Last().endFrameTime, 104);
    EXPECT_EQ(Last().predictedDisplayTime, 1'000'000'000);
    EXPECT_EQ(Context(session_).CurrentLocateTime(), 1'010'000'000);
    const auto ended = EndAll(session_);
    ASSERT_EQ(ended.size(), 1u);
    EXPECT_EQ(ended[0].waitFrameTime, 102);
    EXPECT_EQ(ended[0].beginFrameTime, 103);
}

TEST_F(FrameHooks, DiscardedFrameIsDroppedAndNoOther) {
    struct Row {
        const char* name;
        bool wait_before_begin;  // the next wait is on its way, on another thread, before the discarding begin
    };
    for (const Row& row : {Row{"one after the other", false}, Row{"overlapping", true}}) {
        SCOPED_TRACE(row.name);
        Renew(PendingFrames::instance());
        const XrSession session = OpenSession();
        XrFrameState state{};
        const auto wait = [&] { return OrvanicLayerXrWaitFrame(session, nullptr, &state); };
        const auto begin = [&](XrResult answer) {
            runtime_.answer("xrBeginFrame", answer);
            return OrvanicLayerXrBeginFrame(session, nullptr);
        };
        runtime_.answer_once("xrWaitFrame", XR_ERROR_SESSION_NOT_RUNNING);
        wait();
        wait();
        begin(XR_SUCCESS);
        wait();
        for (int i = 0; i < 20; ++i) {
            const XrTime next_shown = state.predictedDisplayTime;
            if (row.wait_before_begin) wait();
            begin(XR_ERROR_CALL_ORDER_INVALID);  // begins nothing
            EXPECT_EQ(begin(XR_FRAME_DISCARDED), XR_FRAME_DISCARDED);
            begin(XR_ERROR_CALL_ORDER_INVALID);
            EXPECT_EQ(Context(session).CurrentLocateTime(), next_shown);
            if (!row.wait_before_begin) wait();
        }
        const auto ended = EndAll(session);
        ASSERT_EQ(ended.size(), 3u) << "the failed wait's as well";
        EXPECT_EQ(ended[1].predictedDisplayTime, state.predictedDisplayTime - 10'000'000);
        EXPECT_EQ(ended[2].predictedDisplayTime, state.predictedDisplayTime);
        OrvanicLayerXrDestroySession(session);
    }
}

TEST_F(FrameHooks, AbandonedFrameEndsInTheNextSession) {
    Wait();
    OrvanicLayerXrDestroySession(session_);
    const XrSession next = OpenSession();
    XrFrameState state{};
    OrvanicLayerXrWaitFrame(next, nullptr, &state);
    OrvanicLayerXrEndFrame(next, nullptr);
    EXPECT_EQ(Last().session, next);
    EXPECT_EQ(Last().predictedDisplayTime, 1'000'000'000);
    EXPECT_EQ(EndAll(next).size(), 1u);
}

TEST_F(FrameHooks, AnimationsStepAfterTheWaitWhateverItAnsweredAndTryAgainWhereTheyThrow) {
    std::vector<std::size_t> waits_before_steps;
    ActiveAnimation animation;
    animation.name = "/user/head";
    animation.apply = [&](const XrPosef&) -> bool {
        waits_before_steps.push_back(runtime_.calls("xrWaitFrame").size());
        if (waits_before_steps.size() == 1) throw 1;
        return true;
    };
    auto done = PoseAnimationManager::instance().StartAnimation(std::move(animation));
    log_.take();
    EXPECT_EQ(Wait(), XR_ERROR_RUNTIME_FAILURE);
    EXPECT_THAT(log_.take(), ElementsAre("ERROR Exception in OrvanicLayerXrWaitFrame"));
    EXPECT_EQ(Context(session_).CurrentLocateTime(), 1'000'000'000);
    runtime_.answer("xrWaitFrame", XR_ERROR_SESSION_NOT_RUNNING);
    EXPECT_EQ(Wait(), XR_ERROR_SESSION_NOT_RUNNING);
    EXPECT_THAT(waits_before_steps, ElementsAre(1, 2));
    EXPECT_EQ(done.get(), AnimationCompleted);
}

// Read anew by the next instance.
struct ByFrames {
    ByFrames() {
        setenv("ORVANICXR_FRAME_CLOCK", "1", 1);
        FrameClock::instance().ReadSwitch();
    }
    ~ByFrames() {
        unsetenv("ORVANICXR_FRAME_CLOCK");
        FrameClock::instance().ReadSwitch();
    }
};

TEST_F(FrameHooks, ByTheFrameClockAMoveTakesItsFrames) {
    FakeClock stands(0, 5);
    const ByFrames by_frames;
    XrTime shown = 1'000'000'000;
    runtime_.on("xrWaitFrame", [&](XrSession, const XrFrameWaitInfo*, XrFrameState* state) {
        state->predictedDisplayTime = shown += 13'888'888;  // 72 a second, cut to whole nanoseconds
        state->predictedDisplayPeriod = 13'888'888;
        return XR_SUCCESS;
    });
    std::vector<float> seen;
    const auto frames_of = [&](float seconds) {
        ActiveAnimation animation;
        animation.end_pose.position.x = 1;
        animation.duration_seconds = seconds;
        animation.apply = [&](const XrPosef& pose) {
            seen.push_back(pose.position.x);
            return true;
        };
        seen.clear();
        const auto done = PoseAnimationManager::instance().StartAnimation(std::move(animation));
        int frames = 0;
        for (; done.wait_for(std::chrono::seconds(0)) != std::future_status::ready; ++frames) Wait();
        return frames;
    };
    EXPECT_EQ(frames_of(0.5f), 37) << "with no frame yet, it begins with the first";
    EXPECT_EQ(frames_of(2.0f), 144);
    EXPECT_FLOAT_EQ(seen[71], 0.5f);
    EXPECT_EQ(seen.back(), 1.0f);
}

TEST_F(FrameHooks, BeginRunsTheCallbacksThatWaitForItAfterTheForward) {
    static std::vector<std::string> order;
    order.clear();
    runtime_.on("xrBeginFrame", [](XrSession, const XrFrameBeginInfo*) {
        order.emplace_back("runtime");
        return XR_ERROR_CALL_ORDER_INVALID;
    });
    const auto note_run = [](char*, std::uint32_t, std::uint32_t*, const char* arguments, void*) {
        order.emplace_back(arguments);
        return XR_SUCCESS;
    };
    for (const std::uint32_t flags : {1u, 2u}) {
        ExternalToolManager::instance().Enqueue(std::make_shared<DeferredCallbackEntry>(
            ExternalTool{"tool", note_run, flags, nullptr}, "flags " + std::to_string(flags)));
    }
    EXPECT_EQ(Begin(), XR_ERROR_CALL_ORDER_INVALID);
    EXPECT_THAT(order, ElementsAre("runtime", "flags 2"));
    ExternalToolManager::instance().ClearAbandoned();
}

TEST_F(FrameHooks, SteadyFramesAllocateTheirLayerListAndNothingElse) {
    auto table = std::make_unique<NextDispatchTable>();  // of functions that record nothing
    table->WaitFrame = [](XrSession, const XrFrameWaitInfo*, XrFrameState* state) {
        state->predictedDisplayTime += 10;
        state->predictedDisplayPeriod = 10;
        return XR_SUCCESS;
    };
    table->BeginFrame = [](XrSession, const XrFrameBeginInfo*) { return XR_SUCCESS; };
    table->EndFrame = [](XrSession, const XrFrameEndInfo*) { return XR_SUCCESS; };
    DispatchHolder::instance().Replace(std::move(table), runtime_.instance(), nullptr);
    XrCompositionLayerQuad quad{};
    const auto* const layer = reinterpret_cast<const XrCompositionLayerBaseHeader*>(&quad);
    const std::array<const XrCompositionLayerBaseHeader*, 2> layers = {layer, layer};
    XrFrameEndInfo info{};
    XrFrameState state{};
    const auto allocations_of = [&](int frames, std::uint32_t layer_count) {
        info.layerCount = layer_count;
        info.layers = layers.data();
        const std::size_t before = AllocationsOfThisThread();
        for (int i = 0; i < frames; ++i) {
            OrvanicLayerXrWaitFrame(session_, nullptr, &state);
            OrvanicLayerXrBeginFrame(session_, nullptr);
            OrvanicLayerXrEndFrame(session_, &info);
        }
        return AllocationsOfThisThread() - before;
    };
    allocations_of(100, 2);
    EXPECT_EQ(allocations_of(1000, 2), 1000u);
    EXPECT_EQ(allocations_of(1000, 0), 0u);
}

// The wait on one thread, begin and end on another, a tool that reads on a third.
TEST_F(FrameHooks, FramesOverlapOnTwoThreadsWhileAToolReads) {
    constexpr int kFrames = 2000;
    std::atomic<int> waited = 0;
    std::atomic<bool> done = false;
    std::thread tool([&] {
        while (!done) {
            const FrameState frame = Last();
            EXPECT_EQ(frame.predictedDisplayPeriod, frame.valid ? 10'000'000 : 0);
            EXPECT_LE(ContextManager::instance().getFrameHistory().size(), 30u);
            const XrTime time = Context(session_).CurrentLocateTime();
            EXPECT_TRUE(time == 0 || time >= 1'000'000'000);
        }
    });
    std::thread renderer([&] {
        for (int ended = 0; ended < kFrames;) {
            if (waited <= ended) {
                std::this_thread::yield();
                continue;
            }
            Begin();
            EXPECT_EQ(End(), XR_SUCCESS);
            ++ended;
        }
    });
    for (int i = 0; i < kFrames; ++i) {
        EXPECT_EQ(Wait(), XR_SUCCESS);
        ++waited;
    }
    renderer.join();
    done = true;
    tool.join();
    EXPECT_EQ(Last().predictedDisplayTime, 1'000'000'000 + 10'000'000LL * (kFrames - 1));
    EXPECT_THAT(EndAll(session_), IsEmpty());
}

}  // namespace
}  // namespace orvanic_xr
