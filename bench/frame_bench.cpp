// What the layer adds to one frame: xrWaitFrame, xrBeginFrame and xrEndFrame through the hooks, against the same
// three calls straight to the next layer, which does nothing but answer. `added_ns` is the difference within this
// run, `added_cpu_ns` the same without the time in which other programs had the processor, `p50_ns` and `p99_ns`
// are single frames with the clock's own cost, `allocs` is what a frame allocates.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "layer/dispatch/dispatch.h"
#include "layer/frame_hooks.h"
#include "layer/session_hooks.h"
#include "tests/fakes/allocation_counter.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

using Clock = std::chrono::steady_clock;

const XrSession kSession = HandleFromValue<XrSession>(0x1000);
constexpr XrDuration kPeriod = 13'888'889;
constexpr std::size_t kSampledFrames = 200'000;
constexpr std::size_t kUsualLayers = 2;

XrResult XRAPI_CALL AnswerCreateSession(XrInstance, const XrSessionCreateInfo*, XrSession* session) {
    *session = kSession;
    return XR_SUCCESS;
}

XrResult XRAPI_CALL AnswerWaitFrame(XrSession, const XrFrameWaitInfo*, XrFrameState* state) {
    state->predictedDisplayTime += kPeriod;
    state->predictedDisplayPeriod = kPeriod;
    state->shouldRender = XR_TRUE;
    return XR_SUCCESS;
}

XrResult XRAPI_CALL AnswerBeginFrame(XrSession, const XrFrameBeginInfo*) {
    return XR_SUCCESS;
}

XrResult XRAPI_CALL AnswerEndFrame(XrSession, const XrFrameEndInfo* info) {
    benchmark::DoNotOptimize(info->layerCount);
    return XR_SUCCESS;
}

struct FrameFunctions {
    PFN_xrWaitFrame wait;
    PFN_xrBeginFrame begin;
    PFN_xrEndFrame end;
};

constexpr FrameFunctions kStraight = {AnswerWaitFrame, AnswerBeginFrame, AnswerEndFrame};
constexpr FrameFunctions kThroughTheLayer = {OrvanicLayerXrWaitFrame, OrvanicLayerXrBeginFrame, OrvanicLayerXrEndFrame};

// An application in the middle of a session, which submits `layer_count` layers a frame.
class Application {
 public:
    Application(const FrameFunctions& functions, std::size_t layer_count) : functions_(functions) {
        projection_.type = XR_TYPE_COMPOSITION_LAYER_PROJECTION;
        layers_.assign(layer_count, reinterpret_cast<const XrCompositionLayerBaseHeader*>(&projection_));
        end_info_.layerCount = static_cast<std::uint32_t>(layers_.size());
        end_info_.layers = layers_.data();
    }

    void RunFrame() {
        benchmark::DoNotOptimize(functions_);  // or the straight calls vanish
        functions_.wait(kSession, &wait_info_, &frame_state_);
        functions_.begin(kSession, &begin_info_);
        end_info_.displayTime = frame_state_.predictedDisplayTime;
        functions_.end(kSession, &end_info_);
    }

 private:
    FrameFunctions functions_;
    XrFrameWaitInfo wait_info_{};
    XrFrameBeginInfo begin_info_{};
    XrFrameEndInfo end_info_{};
    XrFrameState frame_state_{};
    XrCompositionLayerProjection projection_{};
    std::vector<const XrCompositionLayerBaseHeader*> layers_;
};

double ThreadCpuNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Time since it was made, by the wall and by what this thread got of the processor.
class StopWatch {
 public:
    double wall_ns() const { return std::chrono::duration<double, std::nano>(Clock::now() - wall_).count(); }
    double cpu_ns() const { return ThreadCpuNanoseconds() - cpu_; }

 private:
    Clock::time_point wall_ = Clock::now();
    double cpu_ = ThreadCpuNanoseconds();
};

struct FrameCost {
    double wall_ns;
    double cpu_ns;
};

FrameCost StraightFrameCost() {
    Application application(kStraight, kUsualLayers);
    constexpr int kFrames = 5'000'000;
    const StopWatch watch;
    for (int i = 0; i < kFrames; ++i) application.RunFrame();
    return {watch.wall_ns() / kFrames, watch.cpu_ns() / kFrames};
}

void SampleSingleFrames(benchmark::State& state, Application& application) {
    std::vector<std::int64_t> frames(kSampledFrames);
    for (std::int64_t& frame : frames) {
        const auto begin = Clock::now();
        application.RunFrame();
        frame = (Clock::now() - begin).count();
    }
    std::sort(frames.begin(), frames.end());
    state.counters["p50_ns"] = static_cast<double>(frames[kSampledFrames / 2]);
    state.counters["p99_ns"] = static_cast<double>(frames[kSampledFrames * 99 / 100]);
}

void MeasureFrames(benchmark::State& state, const FrameFunctions& functions, std::size_t layer_count = kUsualLayers) {
    static const FrameCost straight = StraightFrameCost();
    Application application(functions, layer_count);
    for (int i = 0; i < 100; ++i) application.RunFrame();
    const std::size_t allocations_before = AllocationsOfThisThread();
    const StopWatch watch;
    for ([[maybe_unused]] auto _ : state) application.RunFrame();
    const auto frames = static_cast<double>(state.iterations());
    state.counters["added_ns"] = watch.wall_ns() / frames - straight.wall_ns;
    state.counters["added_cpu_ns"] = watch.cpu_ns() / frames - straight.cpu_ns;
    state.counters["allocs"] = static_cast<double>(AllocationsOfThisThread() - allocations_before) / frames;
    SampleSingleFrames(state, application);
}

// What the tools read, as fast as one thread can, for as long as it lives.
class ReadingTools {
 public:
    ReadingTools() : thread_([this] { Run(); }) {}
    ~ReadingTools() {
        done_ = true;
        thread_.join();
    }
    std::int64_t rounds() const { return rounds_; }

 private:
    void Run() {
        while (!done_) {
            const ContextManager& manager = ContextManager::instance();
            benchmark::DoNotOptimize(manager.getInstanceState());
            benchmark::DoNotOptimize(manager.getSessionState());
            benchmark::DoNotOptimize(manager.getFrameState());
            benchmark::DoNotOptimize(manager.getFrameHistory());
            benchmark::DoNotOptimize(manager.getSessionContext(kSession)->CurrentLocateTime());
            ++rounds_;
        }
    }

    std::atomic<bool> done_ = false;
    std::atomic<std::int64_t> rounds_ = 0;
    std::thread thread_;
};

void BM_FrameStraight(benchmark::State& state) {
    MeasureFrames(state, kStraight);
}

void BM_FrameThroughTheLayer(benchmark::State& state) {
    MeasureFrames(state, kThroughTheLayer);
}

void BM_FrameThroughTheLayerWhileToolsRead(benchmark::State& state) {
    const ReadingTools tools;
    MeasureFrames(state, kThroughTheLayer);
    state.counters["tool_rounds"] =
        benchmark::Counter(static_cast<double>(tools.rounds()), benchmark::Counter::kIsRate);
}

// The argument is the number of layers that a frame submits.
void BM_FrameOfLayers(benchmark::State& state) {
    MeasureFrames(state, kThroughTheLayer, static_cast<std::size_t>(state.range(0)));
}

BENCHMARK(BM_FrameStraight);
BENCHMARK(BM_FrameThroughTheLayer)->UseRealTime();
BENCHMARK(BM_FrameThroughTheLayerWhileToolsRead)->UseRealTime();
BENCHMARK(BM_FrameOfLayers)->Arg(0)->Arg(1)->Arg(2)->Arg(4)->Arg(8)->Arg(16);

}  // namespace

// Through the hook: the next layer has no spaces or actions to give, which costs the frames nothing.
void OpenSession() {
    Logger::instance().set_level(kLogError + 1);
    auto table = std::make_unique<NextDispatchTable>();
    table->CreateSession = AnswerCreateSession;
    table->WaitFrame = AnswerWaitFrame;
    table->BeginFrame = AnswerBeginFrame;
    table->EndFrame = AnswerEndFrame;
    DispatchHolder::instance().Replace(std::move(table), XR_NULL_HANDLE, nullptr);
    XrSession session = XR_NULL_HANDLE;
    OrvanicLayerXrCreateSession(XR_NULL_HANDLE, nullptr, &session);
}

}  // namespace orvanic_xr

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    orvanic_xr::OpenSession();
    benchmark::RunSpecifiedBenchmarks();
}
