#include "command/launch/keeper.h"

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "command/applications/proc.h"
#include "command/launch/simulator_link.h"
#include "mcp/client/descriptor.h"

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;

// From asking the application to end to ending it.
constexpr std::chrono::milliseconds kGrace{5000};
constexpr int kKeepersTime = 10000;  // milliseconds: the grace, and what it takes to end the rest
constexpr int kPollMilliseconds = 100;
constexpr int kChannel = 3;  // as the keeper knows it

bool write_file(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    return static_cast<bool>(file);
}

bool bring_loopback_up() {
    const mcp::descriptor any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq loopback{};
    std::memcpy(loopback.ifr_name, "lo", 3);
    loopback.ifr_flags = IFF_UP;
    return ioctl(any.get(), SIOCSIFFLAGS, &loopback) == 0;
}

// A network of this process's own: there the port is free, and nobody else reaches it. Users have that right in a user
// namespace, in which they stay who they are.
bool enter_own_network() {
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    if (unshare(CLONE_NEWNET) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
        write_file("/proc/self/setgroups", "deny");
        if (!write_file("/proc/self/uid_map", user + " " + user + " 1") ||
            !write_file("/proc/self/gid_map", group + " " + group + " 1")) {
            return false;
        }
    }
    return bring_loopback_up();
}

// As exec wants them, with a null pointer behind them.
std::vector<char*> pointers_to(std::vector<std::string>& texts) {
    std::vector<char*> pointers(texts.size() + 1, nullptr);
    std::transform(texts.begin(), texts.end(), pointers.begin(), [](std::string& each) { return each.data(); });
    return pointers;
}

[[noreturn]] void become(const std::vector<std::string>& command, const environment& variables, pid_t keeper) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != keeper) _exit(kNotStarted);  // it has ended before it was watched
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (const int taken : {SIGINT, SIGQUIT, SIGPIPE}) std::signal(taken, SIG_DFL);
    std::vector<std::string> entries = entries_of(variables);
    std::vector<std::string> words = command;
    execvpe(command[0].c_str(), pointers_to(words).data(), pointers_to(entries).data());
    std::fprintf(stderr, "velmoor: %s can't be started: %s\n", command[0].c_str(), std::strerror(errno));
    _exit(kNotStarted);
}

// Of those that have ended, the exit code of `main`, once it is among them.
void reap(pid_t main, std::optional<int>& code) {
    int status = 0;
    for (pid_t ended; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
        if (ended == main) code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }
}

// Takes the signals that have come.
bool is_told_to_end(int signals) {
    signalfd_siginfo happened{};
    bool is_told = false;
    while (read(signals, &happened, sizeof happened) == sizeof happened) is_told |= happened.ssi_signo != SIGCHLD;
    return is_told;
}

struct spawn_actions {
    spawn_actions() { posix_spawn_file_actions_init(&actions); }
    ~spawn_actions() { posix_spawn_file_actions_destroy(&actions); }
    spawn_actions(const spawn_actions&) = delete;
    spawn_actions& operator=(const spawn_actions&) = delete;
    posix_spawn_file_actions_t actions{};
};

std::vector<std::string> keepers_words(const std::vector<std::string>& command, const launch_options& options) {
    std::vector<std::string> words = {"velmoor", "keep"};
    if (!options.own_network) words.emplace_back("--shared-network");
    if (!options.simulator) words.emplace_back("--no-simulator");
    if (!options.control.empty()) words.insert(words.end(), {"--control", options.control});
    words.emplace_back("--");
    words.insert(words.end(), command.begin(), command.end());
    return words;
}

// All that is left below this process. Those whose parents end become its children.
void end_descendants() {
    for (;;) {
        const std::vector<pid_t> left = descendants_of(getpid());
        if (left.empty()) return;
        for (const pid_t each : left) kill(each, SIGKILL);
        std::optional<int> ignored;
        reap(0, ignored);
        usleep(1000);
    }
}

mcp::descriptor watch_signals() {
    sigset_t watched;
    sigemptyset(&watched);
    for (const int each : {SIGCHLD, SIGTERM, SIGHUP}) sigaddset(&watched, each);
    sigprocmask(SIG_BLOCK, &watched, nullptr);
    return mcp::descriptor(signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK));
}

}  // namespace

keeper start_keeper(const std::vector<std::string>& command, const launch_options& options, int output) {
    std::array<int, 2> ends{-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::runtime_error("no socket can be had");
    }
    keeper made{0, mcp::descriptor(ends[0]), mcp::descriptor()};
    const mcp::descriptor keepers_end(ends[1]);
    mcp::descriptor silence;
    if (output >= 0) {
        if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe can be had");
        silence.reset(ends[0]);
        made.input.reset(ends[1]);
    }
    std::vector<std::string> words = keepers_words(command, options);
    spawn_actions its;
    if (output >= 0) {
        posix_spawn_file_actions_adddup2(&its.actions, silence.get(), STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&its.actions, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&its.actions, output, STDERR_FILENO);
    }
    posix_spawn_file_actions_adddup2(&its.actions, keepers_end.get(), kChannel);
    environment variables = current_environment();
    for (const auto& [name, value] : options.variables) variables[name] = value;
    std::vector<std::string> entries = entries_of(variables);
    const int error = posix_spawn(&made.process, options.keeper.c_str(), &its.actions, nullptr,
                                  pointers_to(words).data(), pointers_to(entries).data());
    if (error != 0) throw std::runtime_error(std::string("no process can be started: ") + std::strerror(error));
    return made;
}

int end_keeper(const keeper& which) {
    shutdown(which.channel.get(), SHUT_WR);
    pollfd its_end{which.channel.get(), POLLIN, 0};
    if (poll(&its_end, 1, kKeepersTime) == 0) {
        for (const pid_t each : descendants_of(which.process)) kill(each, SIGKILL);
        kill(which.process, SIGKILL);
    }
    int status = 0;
    waitpid(which.process, &status, 0);
    return status;
}

int run_application(const std::vector<std::string>& command, const launch_options& options) {
    const mcp::descriptor signals = watch_signals();
    keeper started = start_keeper(command, options, -1);
    // A terminal sends these to the application as well, which ends by them or does not.
    for (const int ignored : {SIGINT, SIGQUIT}) std::signal(ignored, SIG_IGN);
    int status = 0;
    while (waitpid(started.process, &status, WNOHANG) == 0) {
        pollfd source{signals.get(), POLLIN, 0};
        poll(&source, 1, kPollMilliseconds);
        if (is_told_to_end(signals.get())) started.channel.reset();
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int keep_application(const std::vector<std::string>& command, const launch_options& options) {
    fcntl(kChannel, F_SETFD, FD_CLOEXEC);  // the application must not hold it
    int channel = kChannel;
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const mcp::descriptor signals = watch_signals();
    // A terminal sends these to the application as well, which ends by them or does not.
    for (const int ignored : {SIGINT, SIGQUIT}) std::signal(ignored, SIG_IGN);
    const environment variables = launch_environment(current_environment(), files_beside_program(), options);
    const auto control = variables.find("VELMOOR_SIM_CONTROL");
    if (options.own_network && !enter_own_network()) {
        std::fprintf(stderr, "velmoor: this system gives no network of its own; the application runs in that of all\n");
    }
    const pid_t keeper = getpid();
    const pid_t application = fork();
    if (application == 0) become(command, variables, keeper);
    if (application < 0) return kNotStarted;

    std::optional<int> code;
    std::optional<clock::time_point> kill_at;
    while (!code) {
        pollfd sources[] = {{signals.get(), POLLIN, 0}, {channel, POLLIN, 0}};
        poll(sources, 2, kPollMilliseconds);
        bool shall_end = is_told_to_end(signals.get());
        if (channel >= 0 && sources[1].revents != 0) {
            channel = -1;
            shall_end = true;
        }
        if (shall_end && !kill_at) {
            kill(application, SIGTERM);
            // One that is held would never come to end by itself.
            if (control != variables.end()) let_run_on(control->second);
            kill_at = clock::now() + kGrace;
        }
        if (kill_at && clock::now() >= *kill_at) kill(application, SIGKILL);
        reap(application, code);
    }
    end_descendants();
    return *code;
}

}  // namespace velmoor
