#include "tests/rendering/x_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace rendering_test {

namespace {

// Up to the end of a line; empty where there is none for half a minute.
std::string ReadLine(int from) {
    std::string line;
    pollfd answer = {from, POLLIN, 0};
    for (char letter = 0; poll(&answer, 1, 30'000) == 1 && read(from, &letter, 1) == 1;) {
        if (letter == '\n') return line;
        line += letter;
    }
    return {};
}

}  // namespace

XServer::XServer() {
    int ends[2];
    if (pipe(ends) != 0) return;
    process_ = fork();
    if (process_ == 0) {
        // It must not outlive the test, and not hold what the test writes to.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        const int nothing = open("/dev/null", O_RDWR);
        dup2(nothing, STDOUT_FILENO);
        dup2(nothing, STDERR_FILENO);
        close(ends[0]);
        const std::string number_to = std::to_string(ends[1]);
        execlp("Xvfb", "Xvfb", "-displayfd", number_to.c_str(), "-nolisten", "tcp", "-screen", "0", "64x64x24",
               nullptr);
        _exit(1);
    }
    close(ends[1]);
    // It writes the number that it found free once it serves.
    const std::string number = ReadLine(ends[0]);
    if (!number.empty()) display_ = ":" + number;
    close(ends[0]);
}

XServer::~XServer() {
    if (process_ <= 0) return;
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
}

}  // namespace rendering_test
