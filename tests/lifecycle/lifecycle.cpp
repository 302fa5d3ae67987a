// Creates and destroys instances of the built layer, over and over in one process, each with other things going on,
// and looks for what stays behind. Or ends the process with all of that going on.
//
//   velmoor_lifecycle cycles COUNT
//   velmoor_lifecycle load SECONDS
//   velmoor_lifecycle exit|return|_exit
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <string_view>
#include <thread>

#include "tests/fakes/holdings.h"
#include "tests/lifecycle/life.h"

namespace lifecycle {
namespace {

using orvanic_xr::Holdings;

// How many calls its end cut short.
int LiveOnce(int cycle) {
    Life life;
    const int kind = cycle % 4;  // 0: just an instance
    if (kind >= 1) life.CreateSession();
    if (kind >= 2) life.LeaveCallsPending();
    if (kind >= 3) life.EndSession();
    life.DestroyInstance();
    return life.ExpectAnswers();
}

int Cycles(int count) {
    const int settled_at = std::max(4, count / 10);
    Holdings settled;
    int cut_short = 0;
    for (int cycle = 1; cycle <= count; ++cycle) {
        cut_short += LiveOnce(cycle);
        if (cycle != settled_at) continue;
        std::this_thread::sleep_for(kLongestThread);
        settled = Holdings::Now();
    }
    const bool no_more = orvanic_xr::HoldsNoMoreThan(settled);
    std::cout << "cycle " << settled_at << ": " << settled << "; cycle " << count << ": " << Holdings::Now() << "; "
              << cut_short << " calls cut short\n";
    return no_more && cut_short > 0 ? 0 : 1;
}

// Six sessions; every other instance takes the last one along.
int LiveUnderLoad(int cycle) {
    Life life;
    life.StartCallers();
    constexpr int kSessions = 6;
    for (int i = 1; i <= kSessions; ++i) {
        life.CreateSession();
        if (i == kSessions) life.AwaitAnswers();
        life.LiveUnderCallers(i < kSessions);
        if (i < kSessions || cycle % 2 == 0) life.EndSession();
    }
    life.StopPolling();
    life.DestroyInstance();
    return life.StopCallers();
}

// Without what is free and only not yet given back.
double ResidentMegabytes() {
    malloc_trim(0);
    long pages = 0;
    std::ifstream("/proc/self/statm").ignore(20, ' ') >> pages;
    return static_cast<double>(pages * sysconf(_SC_PAGESIZE)) / 1e6;
}

// Sessions and instances come and go while tools are called from all sides.
int UnderLoad(int seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    constexpr int kSettledAt = 4;
    constexpr int kJudgedFrom = 20;  // fewer lives, or a sanitizer's, say nothing of memory
    constexpr double kMostGrowth_mb = 8;
    Holdings settled;
    double settled_mb = 0;
    int answered = 0;
    int cycle = 0;
    while (cycle < kSettledAt + 1 || std::chrono::steady_clock::now() < end) {
        answered += LiveUnderLoad(++cycle);
        if (cycle != kSettledAt) continue;
        std::this_thread::sleep_for(kLongestThread);
        settled = Holdings::Now();
        settled_mb = ResidentMegabytes();
    }
    const bool no_more = orvanic_xr::HoldsNoMoreThan(settled);
    const double mb = ResidentMegabytes();
    std::cout << "cycle " << kSettledAt << ": " << settled << ", " << settled_mb << " MB; cycle " << cycle << ": "
              << Holdings::Now() << ", " << mb << " MB; " << answered << " calls answered, none lost\n";
    return no_more && (cycle < kJudgedFrom || mb <= settled_mb + kMostGrowth_mb) ? 0 : 1;
}

int Main(int argc, char** argv) {
    const std::string_view mode = argc >= 2 ? argv[1] : "";
    if ((mode == "cycles" || mode == "load") && argc == 3) {
        const std::string_view text = argv[2];
        int number = 0;
        std::from_chars(text.data(), text.data() + text.size(), number);
        return mode == "load" ? UnderLoad(number) : Cycles(number);
    }
    if (mode != "exit" && mode != "return" && mode != "_exit") {
        std::fprintf(stderr, "usage: velmoor_lifecycle cycles COUNT | load SECONDS | exit | return | _exit\n");
        return 2;
    }
    Life life;
    life.CreateSession();
    life.LeaveCallsPending();
    if (mode == "exit") std::exit(0);
    if (mode == "_exit") _exit(0);
    return 0;
}

}  // namespace
}  // namespace lifecycle

int main(int argc, char** argv) {
    setenv("XR_RUNTIME_JSON", VELMOOR_SIMULATOR_MANIFEST, 1);
    setenv("XR_API_LAYER_PATH", VELMOOR_LAYER_MANIFESTS, 1);
    // The automation layer stands in for what the simulator is told to leave out.
    setenv("XR_ENABLE_API_LAYERS",
           std::getenv("VELMOOR_SIM_WITHOUT") ? "XR_APILAYER_KESTX_velmoor:XR_APILAYER_VELMOOR_automation"
                                              : "XR_APILAYER_KESTX_velmoor",
           1);
    setenv("VELMOOR_SIM_HZ", "500", 1);
    setenv("VELMOOR_SIM_STRICT", "1", 1);
    try {
        return lifecycle::Main(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "FAILED: %s\n", error.what());
        return 1;
    }
}
