// What the layer adds to the calls that an application makes many times a frame: each against the same call
// straight to the next layer, from one thread and from four. `allocs` is per call.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "layer/action_maps.h"
#include "layer/binding_hooks.h"
#include "layer/dispatch/dispatch.h"
#include "layer/space_hooks.h"
#include "tools/simulation/pose_animation_manager.h"
#include "xr/handles.h"

namespace {

thread_local std::int64_t allocations = 0;

void* Allocate(std::size_t size) {
    ++allocations;
    void* const memory = std::malloc(size);
    if (!memory) throw std::bad_alloc();
    return memory;
}

}  // namespace

void* operator new(std::size_t size) {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return Allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace orvanic_xr {
namespace {

template <typename Handle>
XrResult MakeHandle(Handle* handle) {
    static std::uint64_t last = 0x1000;
    *handle = HandleFromValue<Handle>(++last);
    return XR_SUCCESS;
}

// A next layer that does next to nothing.
[[gnu::noinline]] XrResult NextLocateSpace(XrSpace, XrSpace, XrTime, XrSpaceLocation* location) {
    location->pose = {{0, 0, 0, 1}, {1, 2, 3}};
    location->locationFlags = 0xF;
    return XR_SUCCESS;
}

[[gnu::noinline]] XrResult NextGetActionStatePose(XrSession, const XrActionStateGetInfo*, XrActionStatePose* state) {
    state->isActive = XR_FALSE;
    return XR_SUCCESS;
}

[[gnu::noinline]] XrResult NextSyncActions(XrSession, const XrActionsSyncInfo* info) {
    benchmark::DoNotOptimize(info->activeActionSets);
    return XR_SUCCESS;
}

std::unique_ptr<NextDispatchTable> NextLayer() {
    auto table = std::make_unique<NextDispatchTable>();
    table->LocateSpace = NextLocateSpace;
    table->GetActionStatePose = NextGetActionStatePose;
    table->SyncActions = NextSyncActions;
    table->CreateReferenceSpace = [](XrSession, const XrReferenceSpaceCreateInfo*, XrSpace* out) {
        return MakeHandle(out);
    };
    table->CreateActionSet = [](XrInstance, const XrActionSetCreateInfo*, XrActionSet* out) { return MakeHandle(out); };
    table->CreateAction = [](XrActionSet, const XrActionCreateInfo*, XrAction* out) { return MakeHandle(out); };
    table->CreateActionSpace = [](XrSession, const XrActionSpaceCreateInfo*, XrSpace* out) { return MakeHandle(out); };
    return table;
}

// An application in mid-game: a session with the layer's context, two hands with a grip and an aim space each.
struct Game {
    static Game& instance() {
        static Game& game = *new Game;
        return game;
    }

    Game() {
        DispatchHolder::instance().Replace(NextLayer(), HandleFromValue<XrInstance>(1), nullptr);
        ContextManager& manager = ContextManager::instance();
        manager.createSessionContext(session);
        manager.updateSessionState({true, session, XR_SESSION_STATE_FOCUSED, 1});
        context = manager.getSessionContext(session);
        for (const int kind : {kGripKind, kAimKind}) {
            XrAction action = XR_NULL_HANDLE;
            MakeHandle(&action);
            ActionMaps::instance().AddPoseKinds(action, {kind == kGripKind, kind == kAimKind});
            for (const int hand : {kLeftHand, kRightHand}) {
                MakeHandle(&action_space);
                ActionMaps::instance().AddSpace(action_space, {action, hand});
                context->SetSimulatedControllerPose(hand, kind, {{0, 0, 0, 1}, {1, 2, 3}});
            }
            pose_action = action;
        }
    }

    const XrSession session = HandleFromValue<XrSession>(2);
    const XrSpace other_space = HandleFromValue<XrSpace>(3);
    std::shared_ptr<SessionContext> context;
    XrSpace action_space = XR_NULL_HANDLE;
    XrAction pose_action = XR_NULL_HANDLE;
};

template <typename Call>
void Measure(benchmark::State& state, bool automation, Call call) {
    Game& game = Game::instance();
    if (state.thread_index() == 0) game.context->conformance_automation_active = automation;
    const std::int64_t before = allocations;
    for (auto _ : state) call(game);
    state.counters["allocs"] =
        benchmark::Counter(static_cast<double>(allocations - before), benchmark::Counter::kAvgIterations);
}

template <PFN_xrLocateSpace kLocate, bool kActionSpace, bool kAutomation>
void LocateSpace(benchmark::State& state) {
    XrSpaceLocation location = {XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
    Measure(state, kAutomation, [&](const Game& game) {
        const XrSpace space = kActionSpace ? game.action_space : game.other_space;
        benchmark::DoNotOptimize(kLocate(space, game.other_space, 7, &location));
    });
}

template <PFN_xrGetActionStatePose kGetState, bool kAutomation>
void GetActionStatePose(benchmark::State& state) {
    XrActionStatePose pose_state = {XR_TYPE_ACTION_STATE_POSE, nullptr, XR_FALSE};
    Measure(state, kAutomation, [&](const Game& game) {
        const XrActionStateGetInfo info = {XR_TYPE_ACTION_STATE_GET_INFO, nullptr, game.pose_action, XR_NULL_PATH};
        benchmark::DoNotOptimize(kGetState(game.session, &info, &pose_state));
    });
}

// The argument is the number of the application's active sets.
template <PFN_xrSyncActions kSync>
void SyncActions(benchmark::State& state) {
    const std::vector<XrActiveActionSet> sets(static_cast<std::size_t>(state.range(0)));
    const XrActionsSyncInfo info = {XR_TYPE_ACTIONS_SYNC_INFO, nullptr, static_cast<std::uint32_t>(sets.size()),
                                    sets.data()};
    Measure(state, false, [&](const Game& game) { benchmark::DoNotOptimize(kSync(game.session, &info)); });
}

// The argument is the number of the application's action spaces; each call locates another of them.
void LocateOneOfManySpaces(benchmark::State& state) {
    const XrAction action = Game::instance().pose_action;
    std::vector<XrSpace> spaces(static_cast<std::size_t>(state.range(0)));
    for (XrSpace& space : spaces) {
        MakeHandle(&space);
        ActionMaps::instance().AddSpace(space, {action, kRightHand});
    }
    constexpr std::size_t kStride = 7919;  // a prime: neighbours in memory are not asked for in turn
    std::size_t place = 0;
    XrSpaceLocation location = {XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
    Measure(state, true, [&](const Game& game) {
        place = (place + kStride) % spaces.size();
        benchmark::DoNotOptimize(OrvanicLayerXrLocateSpace(spaces[place], game.other_space, 7, &location));
    });
    for (const XrSpace space : spaces) ActionMaps::instance().ForgetSpace(space);
}

// The argument is the number of animations that run; they outlast the benchmark.
void Tick(benchmark::State& state) {
    PoseAnimationManager manager;
    for (int i = 0; i < state.range(0); ++i) {
        ActiveAnimation animation;
        animation.name = "device " + std::to_string(i);
        animation.start_pose = animation.end_pose = {{0, 0, 0, 1}, {1, 2, 3}};
        animation.duration_seconds = 1e6f;
        animation.apply = [](const XrPosef& pose) {
            benchmark::DoNotOptimize(&pose);
            return true;
        };
        manager.StartAnimation(std::move(animation));
    }
    Measure(state, false, [&](const Game&) { manager.Tick(); });
}

struct Row {
    std::string name;
    void (*function)(benchmark::State&);
};

const Row kRows[] = {
    {"xrLocateSpace/next layer", LocateSpace<NextLocateSpace, false, false>},
    {"xrLocateSpace/no action space", LocateSpace<OrvanicLayerXrLocateSpace, false, false>},
    {"xrLocateSpace/action space, automation off", LocateSpace<OrvanicLayerXrLocateSpace, true, false>},
    {"xrLocateSpace/action space, automation on", LocateSpace<OrvanicLayerXrLocateSpace, true, true>},
    {"xrGetActionStatePose/next layer", GetActionStatePose<NextGetActionStatePose, false>},
    {"xrGetActionStatePose/automation off", GetActionStatePose<OrvanicLayerXrGetActionStatePose, false>},
    {"xrGetActionStatePose/automation on", GetActionStatePose<OrvanicLayerXrGetActionStatePose, true>},
};

void RegisterRows() {
    for (const Row& row : kRows) {
        benchmark::RegisterBenchmark(row.name.c_str(), row.function)->Threads(1)->Threads(4)->UseRealTime();
    }
    const Row sync_rows[] = {{"xrSyncActions/next layer, sets", SyncActions<NextSyncActions>},
                             {"xrSyncActions/layer, sets", SyncActions<OrvanicLayerXrSyncActions>}};
    for (const Row& row : sync_rows) {
        auto* const sync = benchmark::RegisterBenchmark(row.name.c_str(), row.function);
        sync->Arg(1)->Arg(4)->Threads(1)->Threads(4)->UseRealTime();
    }
    benchmark::RegisterBenchmark("pose animation tick/animations", Tick)->Arg(0)->Arg(1)->Arg(4)->Arg(16)->Arg(64);
    benchmark::RegisterBenchmark("xrLocateSpace/layer, spaces", LocateOneOfManySpaces)
        ->RangeMultiplier(10)
        ->Range(1, 10'000);
}

}  // namespace
}  // namespace orvanic_xr

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    orvanic_xr::Logger::instance().set_level(orvanic_xr::kLogError);
    orvanic_xr::RegisterRows();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
