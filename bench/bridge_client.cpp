#include "bench/bridge_client.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include "bench/mcp_load_client.h"
#include "mcp/json.h"

namespace bridge_bench {
namespace {

using std::chrono::milliseconds;

constexpr const char* kInitialize =
    R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25","capabilities":{},)"
    R"("clientInfo":{"name":"bench","version":"1"}}})";
constexpr const char* kInitialized = R"({"jsonrpc":"2.0","method":"notifications/initialized"})";

std::string call_text(std::int64_t id) {
    return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) +
           R"(,"method":"tools/call","params":{"name":"echo","arguments":{"message":"hello"}}})";
}

void write_all(int to, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(to, bytes.data(), bytes.size());
        if (count <= 0 && errno != EINTR && errno != EAGAIN)
            throw std::runtime_error("the command takes nothing any more");
        if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::string_view read_some(int from) {
    static thread_local std::array<char, 65536> bytes;
    pollfd source{from, POLLIN, 0};
    poll(&source, 1, 10000);
    const ssize_t count = read(from, bytes.data(), bytes.size());
    if (count <= 0) throw std::runtime_error("the command has ended the connection");
    return {bytes.data(), static_cast<std::size_t>(count)};
}

// A message that is no answer to a call says nothing here.
void take_message(const std::string& text, std::vector<answer>& answers) {
    const mcp::json message = mcp::parse_json(text);
    if (!message.contains("id")) return;
    const mcp::json content = message.value("/result/content/0/text"_json_pointer, mcp::json());
    answers.push_back({message["id"], content.is_string() ? content.get<std::string>() : text});
}

class stdio_client final : public client {
 public:
    stdio_client(const std::string& velmoor, const std::vector<std::string>& environment)
        : command_({velmoor, "mcp"}, environment) {
        write_all(command_.input(), std::string(kInitialize) + "\n" + kInitialized + "\n");
        read_line(command_.output());
    }
    const char* name() const override { return "stdio"; }
    const child& command() const override { return command_; }
    void call(int /*slot*/, std::int64_t id) override { write_all(command_.input(), call_text(id) + "\n"); }
    std::vector<answer> receive(milliseconds limit) override {
        std::vector<answer> answers;
        pollfd source{command_.output(), POLLIN, 0};
        if (poll(&source, 1, static_cast<int>(limit.count())) <= 0) return answers;
        left_ += read_some(command_.output());
        std::size_t begin = 0;
        for (std::size_t end; (end = left_.find('\n', begin)) != std::string::npos; begin = end + 1) {
            take_message(left_.substr(begin, end - begin), answers);
        }
        left_.erase(0, begin);
        return answers;
    }

 private:
    child command_;
    std::string left_;
};

class http_client final : public client {
 public:
    http_client(const std::string& velmoor, const std::vector<std::string>& environment, int slots)
        : command_({velmoor, "serve", "--port", "0"}, environment) {
        const std::string line = read_line(command_.problems());  // "... http://127.0.0.1:PORT/mcp"
        port_ = std::stoi(line.substr(line.rfind(':') + 1));
        connections_.resize(static_cast<std::size_t>(slots));
        connection& first = connections_.front();
        post(first, kInitialize);
        while (first.is_waiting) take(first);
        const std::size_t at = first.head.find("Mcp-Session-Id: ");
        if (at == std::string::npos) throw std::runtime_error("the command gives no session");
        session_ = first.head.substr(at, first.head.find("\r\n", at) + 2 - at);
        post(first, kInitialized);
        while (first.is_waiting) take(first);
    }
    const char* name() const override { return "Streamable HTTP"; }
    const child& command() const override { return command_; }
    void call(int slot, std::int64_t id) override {
        post(connections_.at(static_cast<std::size_t>(slot)), call_text(id));
    }
    std::vector<answer> receive(milliseconds limit) override {
        std::vector<pollfd> sources;
        for (const connection& each : connections_)
            sources.push_back({each.is_waiting ? each.socket.get() : -1, POLLIN, 0});
        std::vector<answer> answers;
        if (poll(sources.data(), sources.size(), static_cast<int>(limit.count())) <= 0) return answers;
        for (std::size_t i = 0; i < sources.size(); ++i) {
            if (sources[i].revents != 0) take(connections_[i], &answers);
        }
        return answers;
    }

 private:
    struct connection {
        mcp::descriptor socket;
        mcp::http_reply_parser reply;
        std::string content;
        std::string head;  // and more, of the first reply
        std::chrono::steady_clock::time_point used;
        bool is_waiting = false;
    };

    void post(connection& on, const std::string& body) {
        // The command ends connections on which nothing comes, as it has announced.
        const auto now = std::chrono::steady_clock::now();
        if (!on.socket || now > on.used + milliseconds(2000)) on.socket.reset(mcp::connect_to(port_));
        on.used = now;
        on.reply = {};
        on.content.clear();
        on.is_waiting = true;
        write_all(on.socket.get(),
                  "POST /mcp HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n"
                  "Accept: application/json, text/event-stream\r\n" +
                      session_ + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }

    void take(connection& from, std::vector<answer>* answers = nullptr) {
        std::string_view bytes = read_some(from.socket.get());
        if (session_.empty()) from.head += bytes;
        const auto state = from.reply.feed(bytes, from.content);
        if (state == mcp::http_reply_parser::state::broken || from.reply.status() >= 300) {
            throw std::runtime_error("the command refuses: " + from.content);
        }
        if (state != mcp::http_reply_parser::state::complete) return;
        from.is_waiting = false;
        if (!from.reply.keeps_connection()) from.socket.reset();
        if (!answers) return;
        if (!from.reply.is_event_stream()) return take_message(from.content, *answers);
        for (std::size_t at = 0; (at = from.content.find("data: ", at)) != std::string::npos;) {
            const std::size_t end = from.content.find('\n', at);
            take_message(from.content.substr(at + 6, end - at - 6), *answers);
            at = end;
        }
    }

    child command_;
    int port_ = 0;
    std::string session_;  // the header
    std::vector<connection> connections_;
};

}  // namespace

child::child(const std::vector<std::string>& words, const std::vector<std::string>& environment) {
    std::array<int, 2> in{}, out{}, err{};
    if (pipe2(in.data(), O_CLOEXEC) != 0 || pipe2(out.data(), O_CLOEXEC) != 0 || pipe2(err.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipes");
    }
    std::vector<char*> arguments;
    for (const std::string& each : words) arguments.push_back(const_cast<char*>(each.c_str()));
    arguments.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        for (const std::string& each : environment) putenv(const_cast<char*>(each.c_str()));
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    for (const int each : {in[0], out[1], err[1]}) close(each);
    input_.reset(in[1]);
    output_.reset(out[0]);
    problems_.reset(err[0]);
    if (pid_ < 0) throw std::runtime_error("no process");
}

child::~child() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

double child::resident_megabytes() const {
    std::ifstream file("/proc/" + std::to_string(pid_) + "/statm");
    double size = 0, resident = 0;
    file >> size >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

std::string read_line(int from) {
    std::string line;
    pollfd source{from, POLLIN, 0};
    for (char byte = 0; poll(&source, 1, 10000) > 0 && read(from, &byte, 1) == 1; line += byte) {
        if (byte == '\n') return line;
    }
    throw std::runtime_error("a program does not say what was expected: " + line);
}

std::unique_ptr<client> make_stdio_client(const std::string& velmoor, const std::vector<std::string>& environment) {
    return std::make_unique<stdio_client>(velmoor, environment);
}

std::unique_ptr<client> make_http_client(const std::string& velmoor, const std::vector<std::string>& environment,
                                         int slots) {
    return std::make_unique<http_client>(velmoor, environment, slots);
}

}  // namespace bridge_bench
