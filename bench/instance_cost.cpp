// What the layer adds to an application's start and end, and to its memory: instances on the simulator through the
// real loader, first without the layer and then with it, in one process.
#include <benchmark/benchmark.h>
#include <openxr/openxr.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRounds = 5;

double Milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double ResidentMegabytes() {
    long total = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return static_cast<double>(resident * sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

struct Cost {
    double create_ms;
    double destroy_ms;
    double resident_mb;  // while an instance lives
};

Cost Measure() {
    std::vector<double> create, destroy, resident;
    for (int i = 0; i < kRounds; ++i) {
        const char* headless = "XR_MND_headless";
        XrInstanceCreateInfo info{};
        info.type = XR_TYPE_INSTANCE_CREATE_INFO;
        std::strcpy(info.applicationInfo.applicationName, "instance_cost");
        info.applicationInfo.apiVersion = XR_MAKE_VERSION(1, 0, 0);
        info.enabledExtensionCount = 1;
        info.enabledExtensionNames = &headless;
        XrInstance instance = XR_NULL_HANDLE;
        const auto start = Clock::now();
        if (XR_FAILED(xrCreateInstance(&info, &instance))) std::exit(1);
        const auto created = Clock::now();
        resident.push_back(ResidentMegabytes());
        const auto ending = Clock::now();
        xrDestroyInstance(instance);
        create.push_back(Milliseconds(created - start));
        destroy.push_back(Milliseconds(Clock::now() - ending));
    }
    return {Median(create), Median(destroy), Median(resident)};
}

Cost cost_without;

void Tell(benchmark::State& state, const Cost& cost) {
    state.counters["create_ms"] = cost.create_ms;
    state.counters["destroy_ms"] = cost.destroy_ms;
    state.counters["resident_mb"] = cost.resident_mb;
}

void BM_InstanceWithout(benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) Tell(state, cost_without = Measure());
}

void BM_InstanceAddedByTheLayer(benchmark::State& state) {
    setenv("XR_ENABLE_API_LAYERS", "XR_APILAYER_KESTX_velmoor", 1);
    for ([[maybe_unused]] auto _ : state) {
        const Cost with = Measure();
        Tell(state, {with.create_ms - cost_without.create_ms, with.destroy_ms - cost_without.destroy_ms,
                     with.resident_mb - cost_without.resident_mb});
    }
}

BENCHMARK(BM_InstanceWithout)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InstanceAddedByTheLayer)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    setenv("XR_RUNTIME_JSON", VELMOOR_BUILD "/lib/velmoor_simulator.json", 1);
    setenv("XR_API_LAYER_PATH", VELMOOR_BUILD "/layers", 1);
    setenv("XDG_STATE_HOME", VELMOOR_BUILD "/demo", 1);
    unsetenv("XR_ENABLE_API_LAYERS");
    benchmark::Initialize(&argc, argv);
    // The layer's lines are not the point here, but they are written as ever; the figures go beside them.
    if (!std::freopen("/dev/null", "w", stdout)) return 1;
    benchmark::ConsoleReporter figures(benchmark::ConsoleReporter::OO_None);
    figures.SetOutputStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&figures);
    return 0;
}
