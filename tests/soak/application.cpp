#include "tests/soak/application.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace soak {
namespace {

constexpr std::size_t kKeptLines = 200;
constexpr int kPipeBytes = 1 << 20;  // its frames do not wait for whoever reads its lines

// The number behind `name` in /proc/PID/status.
long StatusNumber(const std::string& process, const std::string& name) {
    std::ifstream file(process + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(name + ":")) return std::strtol(line.c_str() + name.size() + 1, nullptr, 10);
    }
    return 0;
}

double StarvedSeconds(const std::string& process) {
    double ran_ns = 0;
    double waited_ns = 0;
    std::ifstream(process + "/schedstat") >> ran_ns >> waited_ns;
    return waited_ns / 1e9;
}

[[noreturn]] void Become(const std::string& build, const std::string& state_home, int output) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    // What it frees goes back to the system, so that memory which stays is memory that it holds.
    setenv("MALLOC_MMAP_THRESHOLD_", "131072", 0);
    setenv("MALLOC_TRIM_THRESHOLD_", "131072", 0);
    setenv("XR_RUNTIME_JSON", (build + "/lib/velmoor_simulator.json").c_str(), 1);
    setenv("VELMOOR_SIM_STRICT", "1", 1);
    setenv("XR_API_LAYER_PATH", (build + "/layers").c_str(), 1);
    // The automation layer stands in for what the simulator is told to leave out.
    const bool needs_automation = std::getenv("VELMOOR_SIM_WITHOUT") != nullptr;
    setenv("XR_ENABLE_API_LAYERS",
           needs_automation ? "XR_APILAYER_KESTX_velmoor:XR_APILAYER_VELMOOR_automation" : "XR_APILAYER_KESTX_velmoor",
           1);
    setenv("XDG_STATE_HOME", state_home.c_str(), 1);
    const std::string program = build + "/bin/velmoor_demo";
    // A picture of the automation layer's is one of what the application draws.
    if (needs_automation) {
        execl(program.c_str(), program.c_str(), nullptr);
    } else {
        execl(program.c_str(), program.c_str(), "--headless", nullptr);
    }
    _exit(127);
}

}  // namespace

Application::Application(const std::string& build, const std::string& state_home) {
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) != 0 || (pid_ = fork()) < 0) throw std::runtime_error("cannot start a process");
    if (pid_ == 0) Become(build, state_home, ends[1]);
    close(ends[1]);
    fcntl(ends[0], F_SETPIPE_SZ, kPipeBytes);
    reader_ = std::thread(&Application::ReadLines, this, ends[0]);
}

Application::~Application() {
    if (!exit_code_) kill(pid_, SIGKILL);
    reader_.join();
    if (!exit_code_) waitpid(pid_, nullptr, 0);
}

void Application::ReadLines(int output) {
    std::FILE* const stream = fdopen(output, "r");
    char* line = nullptr;
    std::size_t capacity = 0;
    while (getline(&line, &capacity, stream) >= 0) TakeLine(line);
    std::free(line);
    std::fclose(stream);
    const std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
}

void Application::TakeLine(const std::string& line) {
    const std::lock_guard lock(mutex_);
    last_lines_.push_back(line);
    if (last_lines_.size() > kKeptLines) last_lines_.pop_front();
    const std::size_t told = line.find(" frames a second; ");
    if (told == std::string::npos || line.find("FOCUSED") == std::string::npos) return;
    long long missed = 0;
    long long due = 0;
    if (std::sscanf(line.c_str() + told, " frames a second; %lld of %lld missed", &missed, &due) != 2) return;
    frames_ = {due, missed, 0};
    ++reports_;
    changed_.notify_all();
}

std::optional<Frames> Application::AwaitFrames(std::chrono::seconds limit) {
    std::unique_lock lock(mutex_);
    const bool came = changed_.wait_for(lock, limit, [&, before = reports_] { return ended_ || reports_ != before; });
    if (!came || ended_) return std::nullopt;
    frames_.starved_seconds = StarvedSeconds(ProcessDirectory());
    return frames_;
}

std::string Application::ProcessDirectory() const {
    return "/proc/" + std::to_string(pid_);
}

Footprint Application::ReadFootprint() const {
    const std::string process = ProcessDirectory();
    std::error_code ignored;
    const std::filesystem::directory_iterator descriptors(process + "/fd", ignored);
    return {static_cast<double>(StatusNumber(process, "VmRSS")) / 1024.0,
            static_cast<int>(StatusNumber(process, "Threads")),
            static_cast<int>(std::distance(descriptors, std::filesystem::directory_iterator()))};
}

std::optional<int> Application::AwaitEnd(std::chrono::seconds limit) {
    {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, limit, [&] { return ended_; })) return std::nullopt;
    }
    int status = 0;
    if (!exit_code_ && waitpid(pid_, &status, 0) == pid_) {
        exit_code_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return exit_code_;
}

std::string Application::LastWords() const {
    const std::lock_guard lock(mutex_);
    std::string text;
    for (const std::string& line : last_lines_) text += line;
    return text;
}

}  // namespace soak
