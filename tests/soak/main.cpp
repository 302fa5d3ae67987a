// Keeps the demo application at work for a while under a crowd of clients, and tells what became of it.
//
//   velmoor_soak BUILD_DIRECTORY SECONDS [--any-memory]
//
// Seven clients on both address families call all tools at random; beside them one connects and vanishes, one never
// reads, and one sends garbage. Every request of the seven with an id has to be answered once. When all have left, the
// application may hold no more threads and descriptors than before they came, and no more memory than the bound below;
// it goes on with its frames, and ends by itself with 0 when it is asked to. The exit code is 0 if all that is so.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <stdexcept>
#include <vector>

#include "mcp/thread_pool.h"
#include "tests/fakes/scratch.h"
#include "tests/fakes/sse_client.h"
#include "tests/soak/application.h"
#include "tests/soak/clients.h"

namespace soak {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int kCallers = 7;
constexpr std::array<const char*, 2> kAddresses = {"127.0.0.1", "::1"};
constexpr double kMostGrowth_mb = 64;
// For threads that idle, streams that ended, and answers that nobody reads.
// The pool keeps a worker for each call that ever waited at the same time, up to its bound. What leaves a thread behind
// with each connection or session is far above it soon.
constexpr int kSpareWorkers = mcp::thread_pool::kSpareWorkers;
constexpr auto kSettlingTime = 40s;
constexpr auto kFrameSilence = 20s;

struct Trouble {
    std::int64_t vanished = 0;
    std::int64_t cut_off = 0;
    std::int64_t garbage = 0;
};

class Soak {
 public:
    Soak(const std::string& build, const std::string& state_home) : application_(build, state_home) {}

    void Run(Seconds duration) {
        AwaitFrames();
        Crowd(std::clamp(duration / 10, Seconds(1), Seconds(20)));
        WakeAllKeptWorkers();
        quiet_ = FramesDuring([&] { AwaitFramesFor(std::clamp(duration / 10, Seconds(2), Seconds(60))); });
        before_ = application_.ReadFootprint();
        loud_ = FramesDuring([&] { Crowd(duration); });
        after_ = AwaitSettled();
        AskForExit();
        exit_code_ = application_.AwaitEnd(20s);
    }

    void Print() {
        std::printf("%-14s %lld answered, %lld lost, %lld duplicates, %lld strays, %lld refused\n", "requests",
                    Number(tally_.answered), Number(tally_.lost), Number(tally_.duplicates), Number(tally_.strays),
                    Number(tally_.refused));
        std::printf("%-14s median %.2f, 99th percentile %.2f, slowest %.2f\n", "latency in ms", Latency(0.5),
                    Latency(0.99), Latency(1.0));
        std::printf("%-14s %lld vanished, %lld times garbage, %lld times cut off for not reading\n", "troublemakers",
                    Number(trouble_.vanished), Number(trouble_.garbage), Number(trouble_.cut_off));
        PrintFrames("with clients", loud_);
        PrintFrames("without them", quiet_);
        const double ratio =
            static_cast<double>(loud_.due) / static_cast<double>(std::max<std::int64_t>(1, quiet_.due));
        std::printf("%-14s which makes %.0f in the same time\n", "", static_cast<double>(quiet_.missed) * ratio);
        std::printf("%-14s before %8.1f   after %8.1f\n", "resident MB", before_.resident_mb, after_.resident_mb);
        std::printf("%-14s before %8d   after %8d\n", "threads", before_.threads, after_.threads);
        std::printf("%-14s before %8d   after %8d\n", "descriptors", before_.descriptors, after_.descriptors);
    }

    // What is wrong; empty if nothing is.
    std::string Fault(bool any_memory) const {
        if (tally_.answered == 0) return "nothing was answered";
        if (!tally_.is_clean()) return "requests were lost, answered twice, or refused";
        if (after_.threads > before_.threads + kSpareWorkers) return "threads stayed behind";
        if (after_.descriptors > before_.descriptors) return "descriptors stayed behind";
        if (!any_memory && after_.resident_mb > before_.resident_mb + kMostGrowth_mb) return "memory grew";
        if (!exit_code_) return "the application did not end";
        if (*exit_code_ != 0) return "the application ended with " + std::to_string(*exit_code_);
        return {};
    }

    bool EndedWell() const { return exit_code_ == 0; }
    std::string LastWords() const { return application_.LastWords(); }

 private:
    static long long Number(std::int64_t value) { return value; }
    double Latency(double share) { return static_cast<double>(Quantile(tally_.latencies_ms, share)); }

    Frames AwaitFrames() {
        const auto frames = application_.AwaitFrames(kFrameSilence);
        if (!frames) throw std::runtime_error("the application hangs or is gone");
        return *frames;
    }

    void AwaitFramesFor(Seconds duration) {
        for (const auto end = Clock::now() + duration; Clock::now() < end;) AwaitFrames();
    }

    Frames FramesDuring(const std::function<void()>& act) {
        const Frames begin = AwaitFrames();
        act();
        const Frames end = AwaitFrames();
        return {end.due - begin.due, end.missed - begin.missed, end.starved_seconds - begin.starved_seconds};
    }

    // Lets all clients loose for a while.
    void Crowd(Seconds duration) {
        std::atomic<bool> stop = false;
        std::vector<std::future<Tally>> callers;
        for (int number = 1; number <= kCallers; ++number) {
            const Orders orders = {kAddresses[number % 2], number, stop};
            callers.push_back(std::async(std::launch::async, CallTools, orders));
        }
        const auto at_once = std::launch::async;
        auto vanishing = std::async(at_once, Vanish, Orders{kAddresses[0], 11, stop});
        auto deaf = std::async(at_once, NeverRead, Orders{kAddresses[1], 12, stop});
        auto garbage = std::async(at_once, SendGarbage, Orders{kAddresses[0], 13, stop});
        try {
            AwaitFramesFor(duration);
        } catch (...) {
            stop = true;
            throw;
        }
        stop = true;
        for (auto& caller : callers) tally_.Add(caller.get());
        trouble_.vanished += vanishing.get();
        trouble_.cut_off += deaf.get();
        trouble_.garbage += garbage.get();
    }

    // The server keeps some workers once they were needed; from here on they count as its own.
    static void WakeAllKeptWorkers() {
        std::vector<mcp::raw_socket> sockets;
        for (int i = 0; i < 40; ++i) sockets.emplace_back(kPort, kAddresses[i % 2]);
    }

    Footprint AwaitSettled() {
        Footprint footprint;
        for (const auto end = Clock::now() + kSettlingTime; Clock::now() < end;) {
            AwaitFrames();
            footprint = application_.ReadFootprint();
            if (footprint.threads <= before_.threads + kSpareWorkers && footprint.descriptors <= before_.descriptors)
                break;
        }
        return footprint;
    }

    static void AskForExit() {
        mcp::sse_client client(kPort, kAddresses[0]);
        client.shake_hands();
        client.call_tool(1, "openxr_exit_session");
    }

    static void PrintFrames(const char* when, const Frames& frames) {
        std::printf("%-14s %s: %lld of %lld; their thread waited %.1f s for a processor\n", "frames missed", when,
                    Number(frames.missed), Number(frames.due), frames.starved_seconds);
    }

    Application application_;
    Tally tally_;
    Trouble trouble_;
    Frames quiet_;
    Frames loud_;
    Footprint before_;
    Footprint after_;
    std::optional<int> exit_code_;
};

bool PortIsFree() {
    for (const char* address : kAddresses) {
        try {
            mcp::raw_socket(kPort, address);
            return false;
        } catch (const std::runtime_error&) {
        }
    }
    return true;
}

void GiveUp(int) {
    constexpr char kText[] = "soak: FAILED: a client or the application hangs\n";
    if (write(STDOUT_FILENO, kText, sizeof kText - 1) > 0) _exit(1);
    _exit(1);
}

int Run(const std::string& build, Seconds duration, bool any_memory) {
    if (!PortIsFree()) {
        std::printf("soak: FAILED: port %d is in use\n", kPort);
        return 1;
    }
    // Beyond all that is waited for below.
    std::signal(SIGALRM, GiveUp);
    alarm(static_cast<unsigned>(duration.count() * 1.5) + 200);
    const orvanic_xr::ScratchDirectory scratch;
    Soak soak(build, scratch.path());
    std::string fault;
    try {
        soak.Run(duration);
        soak.Print();
        fault = soak.Fault(any_memory);
    } catch (const std::exception& problem) {
        fault = problem.what();
    }
    if (fault.empty()) {
        std::printf("soak: good\n");
        return 0;
    }
    if (!soak.EndedWell()) std::printf("the application's last words:\n%s\n", soak.LastWords().c_str());
    std::printf("soak: FAILED: %s\n", fault.c_str());
    return 1;
}

}  // namespace
}  // namespace soak

int main(int argc, char** argv) {
    const bool any_memory = argc == 4 && std::strcmp(argv[3], "--any-memory") == 0;
    const double seconds = argc >= 3 ? std::strtod(argv[2], nullptr) : 0;
    if (!(argc == 3 || any_memory) || !(seconds >= 1 && seconds <= 1e6)) {
        std::fprintf(stderr, "usage: velmoor_soak BUILD_DIRECTORY SECONDS [--any-memory]\n");
        return 2;
    }
    return soak::Run(argv[1], soak::Seconds(seconds), any_memory);
}
