// What the command `velmoor` adds to a tool call, on standard input and output and over Streamable HTTP, held against
// the same call made to the application directly, in turns; how many calls it carries; what it takes; and how soon it
// serves an application that was started again.
//
//   velmoor_bench_bridge                   the figures
//   velmoor_bench_bridge --kill SECONDS    kills the application at random moments under load instead; ends with 1 if
//                                          a request was answered not at all or twice
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "bench/bridge_client.h"
#include "bench/mcp_load_client.h"

namespace {

using bridge_bench::answer;
using bridge_bench::child;
using bridge_bench::client;
using clock_type = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kPort = 8720;
constexpr int kSlots = 32;
constexpr int kRounds = 10;
constexpr int kCallsOfRound = 1000;
constexpr int kRestarts = 5;

// There the layer's port is free. Where the system does not let us, it has to be free here.
void enter_own_network() {
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return;
    const mcp::descriptor any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq loopback{};
    std::strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP | IFF_RUNNING;
    ioctl(any.get(), SIOCSIFFLAGS, &loopback);
}

struct surroundings {
    std::string programs = std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
    std::string scratch;
    std::vector<std::string> environment;

    surroundings() {
        char path[] = "/tmp/velmoor_bench_XXXXXX";
        if (!mkdtemp(path)) throw std::runtime_error("no scratch directory");
        scratch = path;
        environment = {"XDG_STATE_HOME=" + scratch, "XDG_CACHE_HOME=" + scratch};
    }
    ~surroundings() {
        std::error_code ignored;
        std::filesystem::remove_all(scratch, ignored);
    }
    std::string velmoor() const { return programs + "/velmoor"; }
    // It serves when this returns.
    std::unique_ptr<child> start_application() const {
        auto made = std::make_unique<child>(
            std::vector<std::string>{programs + "/velmoor_mcp_echo_server", std::to_string(kPort)}, environment);
        bridge_bench::read_line(made->output());
        return made;
    }
};

std::atomic<std::int64_t> next_id{1};

struct load {
    std::vector<double> latencies_us;
    double seconds = 0;
    int lost = 0;
    int twice = 0;
    int not_run = 0;
    int unknown = 0;

    double latency_us(double share) {
        std::sort(latencies_us.begin(), latencies_us.end());
        return latencies_us.empty()
                   ? 0
                   : latencies_us[static_cast<std::size_t>(share * static_cast<double>(latencies_us.size() - 1))];
    }
};

// Calls with `in_flight` of them at a time while `goes_on`, then awaits those that are under way.
template <typename GoesOn>
void run_load(client& of, int in_flight, const GoesOn& goes_on, load& told) {
    struct pending {
        std::int64_t id = 0;
        clock_type::time_point sent;
    };
    std::vector<pending> slots(static_cast<std::size_t>(in_flight));
    const auto start = clock_type::now();
    auto last = start;
    int open = 0;
    const auto send = [&](std::size_t slot) {
        slots[slot] = {next_id++, clock_type::now()};
        ++open;
        of.call(static_cast<int>(slot), slots[slot].id);
    };
    for (std::size_t i = 0; i < slots.size(); ++i) send(i);
    while (open > 0 && clock_type::now() < last + std::chrono::seconds(20)) {
        for (const answer& each : of.receive(milliseconds(1000))) {
            last = clock_type::now();
            const auto slot =
                std::find_if(slots.begin(), slots.end(), [&](const auto& one) { return one.id == each.id; });
            if (slot == slots.end()) {
                ++told.twice;
                continue;
            }
            told.latencies_us.push_back(std::chrono::duration<double, std::micro>(last - slot->sent).count());
            if (each.text.find("was not run") != std::string::npos && told.not_run++ == 0)
                std::printf("%s: %s\n", of.name(), each.text.c_str());
            told.unknown += each.text.find("outcome is unknown") != std::string::npos;
            slot->id = 0;
            --open;
            if (goes_on()) send(static_cast<std::size_t>(slot - slots.begin()));
        }
    }
    told.lost += open;
    told.seconds += std::chrono::duration<double>(clock_type::now() - start).count();
}

void run_calls(client& of, int in_flight, int calls, load& told) {
    int left = calls - in_flight;
    run_load(
        of, in_flight, [&left] { return left-- > 0; }, told);
}

int all_lost = 0;

void measure_calls(const surroundings& here, std::vector<std::unique_ptr<client>>& clients) {
    const auto application = here.start_application();
    std::vector<load> alone(clients.size());
    std::vector<double> direct_us;
    for (auto& each : clients) {
        load warm;
        run_calls(*each, kSlots, kCallsOfRound, warm);
    }
    for (int round = 0; round < kRounds; ++round) {
        const mcp::load_result direct = mcp::measure_load(kPort, 1, 1, kCallsOfRound);
        direct_us.insert(direct_us.end(), direct.latencies_us.begin(), direct.latencies_us.end());
        for (std::size_t i = 0; i < clients.size(); ++i) run_calls(*clients[i], 1, kCallsOfRound, alone[i]);
    }
    load direct;
    direct.latencies_us = std::move(direct_us);
    std::printf("  a call to the application itself: %.0f us; the slowest of a hundred: %.0f us\n",
                direct.latency_us(0.5), direct.latency_us(0.99));
    for (std::size_t i = 0; i < clients.size(); ++i) {
        std::printf("  added on %s: %.0f us; to the slowest of a hundred: %.0f us\n", clients[i]->name(),
                    alone[i].latency_us(0.5) - direct.latency_us(0.5),
                    alone[i].latency_us(0.99) - direct.latency_us(0.99));
        load many;
        run_calls(*clients[i], kSlots, kRounds * kCallsOfRound, many);
        all_lost += alone[i].lost + many.lost + alone[i].twice + many.twice;
        std::printf("  calls a second on %s: %.0f; %d in flight; lost or doubled: %d; memory: %.1f MB\n",
                    clients[i]->name(), static_cast<double>(many.latencies_us.size()) / many.seconds, kSlots, all_lost,
                    clients[i]->command().resident_megabytes());
    }
}

double to_endpoint_ms() {
    const auto start = clock_type::now();
    const mcp::descriptor stream(mcp::connect_to(kPort));
    const std::string_view request = "GET /sse HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: text/event-stream\r\n\r\n";
    if (write(stream.get(), request.data(), request.size()) < 0) throw std::runtime_error("no stream");
    while (!bridge_bench::read_line(stream.get()).starts_with("event: endpoint")) {
    }
    return std::chrono::duration<double, std::milli>(clock_type::now() - start).count();
}

// A call waits while there is no application.
void measure_restarts(const surroundings& here, client& of) {
    std::vector<double> seen_ms;
    double endpoint_ms = 0;
    for (int i = 0; i < kRestarts; ++i) {
        std::unique_ptr<child> application;
        std::atomic<clock_type::rep> started{0};
        std::thread starting([&] {
            std::this_thread::sleep_for(milliseconds(300 + 37 * i));
            application = here.start_application();
            started = clock_type::now().time_since_epoch().count();
        });
        load one;
        run_calls(of, 1, 1, one);
        const auto answered = clock_type::now();
        starting.join();
        all_lost += one.lost + one.not_run;
        const clock_type::time_point began{clock_type::duration(started)};
        seen_ms.push_back(std::chrono::duration<double, std::milli>(answered - began).count());
        endpoint_ms = to_endpoint_ms();
    }
    std::sort(seen_ms.begin(), seen_ms.end());
    const double median = seen_ms[seen_ms.size() / 2];
    std::printf(
        "  from an application's restart to the first answer: %.0f ms; of these before it gives an address: %.0f ms; "
        "all else: %.0f ms\n",
        median, endpoint_ms, median - endpoint_ms);
}

bool kill_under_load(const surroundings& here, std::vector<std::unique_ptr<client>>& clients, double seconds) {
    std::atomic<bool> goes_on{true};
    int kills = 0;
    std::thread killer([&] {
        std::mt19937 random(std::random_device{}());
        std::uniform_int_distribution<int> pause(0, 1500);
        const auto end = clock_type::now() + std::chrono::duration<double>(seconds);
        std::unique_ptr<child> application;
        for (; clock_type::now() < end; ++kills) {
            application.reset();
            std::this_thread::sleep_for(milliseconds(pause(random) / 10));
            application = here.start_application();
            std::this_thread::sleep_for(milliseconds(300 + pause(random)));
        }
        goes_on = false;
        std::this_thread::sleep_for(std::chrono::seconds(3));  // the last are answered by one that stays
    });
    bool is_well = true;
    std::vector<std::thread> callers;
    std::vector<load> told(clients.size());
    for (std::size_t i = 0; i < clients.size(); ++i) {
        callers.emplace_back([&, i] {
            run_load(
                *clients[i], kSlots, [&] { return goes_on.load(); }, told[i]);
        });
    }
    for (std::thread& each : callers) each.join();
    killer.join();
    for (std::size_t i = 0; i < clients.size(); ++i) {
        const load& its = told[i];
        std::printf(
            "%s: %zu answered over %d kills, %d of them with their outcome unknown, %d not run; lost: %d, twice: %d\n",
            clients[i]->name(), its.latencies_us.size(), kills, its.unknown, its.not_run, its.lost, its.twice);
        is_well &=
            its.lost == 0 && its.twice == 0 && static_cast<int>(its.latencies_us.size()) > its.unknown + its.not_run;
    }
    return is_well;
}

}  // namespace

int main(int argc, char** argv) try {
    signal(SIGPIPE, SIG_IGN);
    const bool kills = argc == 3 && std::string_view(argv[1]) == "--kill";
    enter_own_network();
    const surroundings here;
    std::vector<std::unique_ptr<client>> clients;
    clients.push_back(bridge_bench::make_stdio_client(here.velmoor(), here.environment));
    clients.push_back(bridge_bench::make_http_client(here.velmoor(), here.environment, kSlots));
    if (kills) return kill_under_load(here, clients, std::stod(argv[2])) ? 0 : 1;
    std::puts("velmoor");
    measure_calls(here, clients);
    measure_restarts(here, *clients.front());
    return all_lost == 0 ? 0 : 1;
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 2;
}
