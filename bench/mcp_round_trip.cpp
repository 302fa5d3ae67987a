// What a tool call costs over HTTP and SSE on loopback, from the POST to its answer, held against a bare TCP echo
// in the same run. The server logs to a file as in the layer, in a scratch directory.
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

struct load_case {
    const char* name;
    int sessions;
    int in_flight;
};

constexpr load_case kCases[] = {
    {"1 session, 1 call at a time", 1, 1},
    {"1 session, 8 in flight", 1, 8},
    {"1 session, 64 in flight", 1, 64},
    {"4 sessions, 64 in flight on each", 4, 64},
};

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

void print(const char* name, const mcp::load_result& result, double echo_p50_us) {
    std::printf("%-34s p50 %8.1f us (%5.1f x echo)  p99 %8.1f us  %8.0f calls/s  lost %d  duplicates %d\n", name,
                result.latency_us(0.5), result.latency_us(0.5) / echo_p50_us, result.latency_us(0.99),
                result.calls_per_second(), result.lost, result.duplicates);
}

}  // namespace

int main() try {
    const scratch_directory scratch;
    orvanic_xr::LogFileSink::instance().begin_session("bench");
    mcp::server_config config;
    config.host = "127.0.0.1";
    config.port = 0;
    config.write_timeout_seconds = 30;
    mcp::server server(config);
    mcp::tool echo;
    echo.name = "echo";
    server.register_tool(echo, [](const mcp::json& arguments, const std::string&) {
        return mcp::json::array({{{"type", "text"}, {"text", arguments.at("message")}}});
    });
    server.start(false);
    if (!server.wait_until_listening(std::chrono::seconds(5))) throw std::runtime_error("the server does not listen");

    const mcp::load_result bare = measure_echo();
    print("bare TCP echo", bare, bare.latency_us(0.5));
    bool all_answered = true;
    for (const load_case& each : kCases) {
        const mcp::load_result result = mcp::measure_load(server.port(), each.sessions, each.in_flight, kCalls);
        print(each.name, result, bare.latency_us(0.5));
        all_answered = all_answered && result.lost == 0 && result.duplicates == 0;
    }
    server.stop();
    orvanic_xr::LogFileSink::instance().end_session();
    return all_answered ? 0 : 1;
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 2;
}
