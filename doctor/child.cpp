#include "doctor/child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>

namespace orvanic_xr {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void RunAndExit(const std::function<void(int)>& work, int output, int complaints) {
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    dup2(nothing, STDOUT_FILENO);
    dup2(complaints, STDERR_FILENO);
    work(output);
    _exit(0);
}

// False once the deadline is over. The other end is closed by the child's end, however that comes.
bool ReadToEnd(int fd, Clock::time_point deadline, std::string& text) {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return false;
        pollfd waiting{fd, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(left)) <= 0) continue;  // over, or interrupted: the clock tells
        std::array<char, 4096> bytes;
        const ssize_t count = read(fd, bytes.data(), bytes.size());
        if (count <= 0) return true;
        text.append(bytes.data(), static_cast<std::size_t>(count));
    }
}

std::string WholeFile(int fd) {
    std::string text(static_cast<std::size_t>(std::max<off_t>(lseek(fd, 0, SEEK_END), 0)), '\0');
    const ssize_t count = pread(fd, text.data(), text.size(), 0);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return text;
}

}  // namespace

ChildOutcome RunInChild(const std::function<void(int)>& work, std::chrono::seconds limit) {
    ChildOutcome outcome;
    std::array<int, 2> channel{-1, -1};
    const int complaints = memfd_create("complaints", MFD_CLOEXEC);
    if (complaints < 0 || pipe2(channel.data(), O_CLOEXEC) != 0) {
        outcome.accident = "could not be tried: no file descriptor is left";
        return outcome;
    }
    const pid_t child = fork();
    if (child == 0) RunAndExit(work, channel[1], complaints);
    close(channel[1]);
    if (child < 0) {
        outcome.accident = "could not be tried: no process can be made";
    } else {
        const bool ended = ReadToEnd(channel[0], Clock::now() + limit, outcome.output);
        if (!ended) kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        if (!ended) {
            outcome.accident = "gave no answer in " + std::to_string(limit.count()) + " seconds";
        } else if (WIFSIGNALED(status)) {
            outcome.accident = "crashed with signal " + std::to_string(WTERMSIG(status));
        } else if (WEXITSTATUS(status) != 0) {
            outcome.accident = "ended its process with " + std::to_string(WEXITSTATUS(status));
        }
    }
    outcome.complaints = WholeFile(complaints);
    close(channel[0]);
    close(complaints);
    return outcome;
}

}  // namespace orvanic_xr
