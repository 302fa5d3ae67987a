// What a tool call costs over HTTP and SSE on loopback, from the POST to its answer, by the number of sessions and of
// calls in flight on each, held against a bare TCP echo in the same run. The server logs to a file as in the layer, in
// a scratch directory. `p50_us` and `p99_us` are single calls, `echoes` is how many echoes the median takes, and
// `lost` and `duplicates` have to be 0.
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "bench/mcp_load_client.h"
#include "diagnostics/log_file_sink.h"
#include "mcp/server.h"

namespace {

constexpr int kCalls = 20000;

class scratch_directory {
 public:
    scratch_directory() {
        char path[] = "/tmp/velmoor_bench_XXXXXX";
        if (!mkdtemp(path)) throw std::runtime_error("no scratch directory");
        path_ = path;
        setenv("XDG_STATE_HOME", path, 1);
    }
    ~scratch_directory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

 private:
    std::string path_;
};

// Sends a call's worth of bytes to and fro.
mcp::load_result measure_echo() {
    const int listening = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listening, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listening, 1) != 0) {
        throw std::runtime_error("no echo");
    }
    getsockname(listening, reinterpret_cast<sockaddr*>(&address), &size);
    std::thread echo([listening] {
        const int peer = accept(listening, nullptr, nullptr);
        const int on = 1;
        setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        std::array<char, 4096> bytes;
        for (ssize_t count; (count = recv(peer, bytes.data(), bytes.size(), 0)) > 0;) {
            send(peer, bytes.data(), static_cast<std::size_t>(count), MSG_NOSIGNAL);
        }
        close(peer);
    });
    const int client = mcp::connect_to(ntohs(address.sin_port));
    mcp::load_result result;
    std::array<char, 256> bytes{};
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kCalls; ++i) {
        const auto sent = std::chrono::steady_clock::now();
        send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        recv(client, bytes.data(), bytes.size(), MSG_WAITALL);
        result.latencies_us.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - sent).count());
    }
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::sort(result.latencies_us.begin(), result.latencies_us.end());
    close(client);
    echo.join();
    close(listening);
    return result;
}

bool all_answered = true;
double echo_p50_us = 0;

void tell(benchmark::State& state, const mcp::load_result& result) {
    state.SetIterationTime(result.seconds);
    state.counters["p50_us"] = result.latency_us(0.5);
    state.counters["p99_us"] = result.latency_us(0.99);
    state.counters["echoes"] = result.latency_us(0.5) / echo_p50_us;
    state.counters["per_second"] = result.calls_per_second();
    state.counters["lost"] = result.lost;
    state.counters["duplicates"] = result.duplicates;
    all_answered = all_answered && result.lost == 0 && result.duplicates == 0;
}

void bare_echo(benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
        const mcp::load_result result = measure_echo();
        echo_p50_us = result.latency_us(0.5);
        tell(state, result);
    }
}

void tool_call(benchmark::State& state, int port) {
    for ([[maybe_unused]] auto _ : state) {
        const auto sessions = static_cast<int>(state.range(0));
        const auto in_flight = static_cast<int>(state.range(1));
        tell(state, mcp::measure_load(port, sessions, in_flight, kCalls));
    }
}

}  // namespace

int main(int argc, char** argv) try {
    benchmark::Initialize(&argc, argv);
    const scratch_directory scratch;
    orvanic_xr::LogFileSink::instance().begin_session("bench");
    mcp::server_config config;
    config.host = "127.0.0.1";
    config.port = 0;
    config.write_timeout_seconds = 30;
    config.timings.endpoint_delay = std::chrono::milliseconds(1);  // opening a session is not what is measured
    mcp::server server(config);
    mcp::tool echo;
    echo.name = "echo";
    server.register_tool(echo, [](const mcp::json& arguments, const std::string&) {
        return mcp::json::array({{{"type", "text"}, {"text", arguments.at("message")}}});
    });
    server.start(false);
    if (!server.wait_until_listening(std::chrono::seconds(5))) throw std::runtime_error("the server does not listen");

    const auto once = [](benchmark::internal::Benchmark* each) { each->Iterations(1)->UseManualTime(); };
    benchmark::RegisterBenchmark("bare TCP echo", bare_echo)->Apply(once);
    auto* const calls = benchmark::RegisterBenchmark("tool call", tool_call, server.port());
    calls->ArgNames({"sessions", "in_flight"})->Unit(benchmark::kMillisecond)->Apply(once);
    for (const int many : {1, 2, 4, 8, 16, 32, 64}) calls->Args({1, many});
    for (const int many : {2, 4, 8, 16, 32, 64}) calls->Args({many, 1});
    calls->Args({4, 64});
    benchmark::RunSpecifiedBenchmarks();
    server.stop();
    orvanic_xr::LogFileSink::instance().end_session();
    return all_answered ? 0 : 1;
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 2;
}
