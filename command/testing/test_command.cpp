#include "command/testing/test_command.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "command/testing/report.h"

namespace velmoor {
namespace {

namespace fs = std::filesystem;
using clock = std::chrono::steady_clock;

constexpr int kEndedBySignal = 128;  // as shells have it

void write(const fs::path& path, const std::string& bytes) {
    if (bytes.empty()) return;
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << bytes << std::flush;
    if (!file) throw std::runtime_error(path.string() + " can't be written");
}

// `number` tells it from others of the same name.
void keep(const test_result& result, const fs::path& output, std::size_t number) {
    const fs::path directory = output / (fs::path(result.path).stem().string() + "-" + std::to_string(number));
    write(directory / "output.txt", result.output);
    write(directory / "last.png", result.last_picture);
    for (const step_result& each : result.steps) {
        write(directory / "expected.png", each.pictures.expected);
        write(directory / "actual.png", each.pictures.actual);
        write(directory / "difference.png", each.pictures.difference);
    }
}

void tell(const test_result& result, std::size_t done, std::size_t of) {
    const char* mark = "passed";
    if (result.came_to == verdict::failed) mark = "FAILED";
    if (result.came_to == verdict::set_up_failed) mark = "SET-UP FAILED";
    std::printf("[%zu/%zu] %s %s (%.2f s)\n", done, of, mark, result.name.c_str(), result.seconds);
    if (!result.message.empty()) std::printf("    %s\n", result.message.c_str());
    std::fflush(stdout);
}

struct job {
    const test_file* test;
    int repetition;
};

std::vector<job> jobs_of(const std::vector<test_file>& tests, int repeat) {
    std::vector<job> jobs;
    for (int repetition = 1; repetition <= repeat; ++repetition) {
        for (const test_file& each : tests) jobs.push_back({&each, repetition});
    }
    return jobs;
}

// Keeps from other threads, and from those who are started, what a terminal or a supervisor ends this process with. To
// be made while the process has one thread.
class end_signals {
 public:
    end_signals() {
        sigemptyset(&set_);
        for (const int each : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set_, each);
        sigprocmask(SIG_BLOCK, &set_, &before_);
    }
    ~end_signals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    end_signals(const end_signals&) = delete;
    end_signals& operator=(const end_signals&) = delete;

    // The one that has come; 0 if none does in a while.
    int wait() const {
        constexpr timespec kWhile{0, 20'000'000};
        return std::max(0, sigtimedwait(&set_, nullptr, &kWhile));
    }

 private:
    sigset_t set_{};
    sigset_t before_{};
};

// Before the first test, and not behind the last.
void check_output(const fs::path& output) {
    std::error_code error;
    fs::create_directories(output, error);
    const std::ofstream report(output / "junit.xml", std::ios::binary);
    if (!report)
        throw std::runtime_error("no reports can be written to " + output.string() + ": " + std::strerror(errno));
}

// Goes through the jobs, several at a time, until all are done or this process is told to end.
class job_runner {
 public:
    job_runner(const test_request& request, std::vector<job> jobs)
        : request_(request), jobs_(std::move(jobs)), settings_(request.run) {
        settings_.is_stopped = &is_stopped_;
    }

    // The signal that ended it; 0 if none did.
    int run() {
        const end_signals signals;
        at_work_ = request_.at_a_time;
        std::vector<std::thread> workers(static_cast<std::size_t>(request_.at_a_time));
        for (std::thread& each : workers) each = std::thread([this] { work(); });
        int signal = 0;
        while (at_work_ > 0 && signal == 0) signal = signals.wait();
        is_stopped_ = signal != 0;
        for (std::thread& each : workers) each.join();
        return signal;
    }

    // In the jobs' order. Those that were not done are not among them.
    std::vector<test_result> results() {
        std::vector<test_result> made;
        for (auto& [number, result] : done_) made.push_back(std::move(result));
        return made;
    }

 private:
    void work() {
        for (std::size_t i; (i = next_++) < jobs_.size() && !is_stopped_;) {
            test_result result = result_of(jobs_[i]);
            if (is_stopped_) break;  // it says nothing
            const std::lock_guard lock(mutex_);
            tell(result, done_.size() + 1, jobs_.size());
            try {
                if (result.came_to != verdict::passed) keep(result, request_.output, i + 1);
            } catch (const std::exception& e) {
                std::fprintf(stderr, "velmoor: %s\n", e.what());
            }
            done_.emplace(i, std::move(result));
        }
        --at_work_;
    }

    test_result result_of(const job& each) const {
        test_result result;
        try {
            result = run_test(*each.test, settings_);
        } catch (const std::exception& e) {
            result.name = each.test->name;
            result.path = each.test->path;
            result.came_to = verdict::set_up_failed;
            result.message = result.path + ":1: " + e.what();
        }
        result.repetition = each.repetition;
        return result;
    }

    const test_request& request_;
    const std::vector<job> jobs_;
    run_settings settings_;
    std::atomic<std::size_t> next_{0};
    std::atomic<int> at_work_{0};
    std::atomic<bool> is_stopped_{false};
    std::mutex mutex_;  // all below, and what is printed
    std::map<std::size_t, test_result> done_;
};

}  // namespace

void take_shard(const std::string& text, test_request& into) {
    const char* const end = text.data() + text.size();
    const auto first = std::from_chars(text.data(), end, into.shard);
    if (first.ec == std::errc() && first.ptr != end && *first.ptr == '/') {
        const auto second = std::from_chars(first.ptr + 1, end, into.shards);
        if (second.ec == std::errc() && second.ptr == end && into.shard >= 1 && into.shard <= into.shards) return;
    }
    throw std::runtime_error("--shard must be such as 2/8");
}

int run_tests(const test_request& request) {
    std::vector<test_file> tests;
    for (std::size_t i = 0; i < request.files.size(); ++i) {
        const bool is_ours =
            i % static_cast<std::size_t>(request.shards) == static_cast<std::size_t>(request.shard - 1);
        test_file read = read_test(request.files[i]);  // also those of other shards: what is broken is told at once
        if (is_ours) tests.push_back(std::move(read));
    }
    check_output(request.output);
    const auto begin = clock::now();
    const std::vector<job> jobs = jobs_of(tests, request.repeat);
    job_runner runner(request, jobs);
    const int signal = runner.run();
    const std::vector<test_result> results = runner.results();

    const double seconds = std::chrono::duration<double>(clock::now() - begin).count();
    write(fs::path(request.output) / "junit.xml", junit_report(results, seconds));
    write(fs::path(request.output) / "report.html", html_report(results, seconds));
    const auto came_to = [&](verdict which) {
        return std::count_if(results.begin(), results.end(), [&](const auto& each) { return each.came_to == which; });
    };
    std::printf("%td of %zu passed in %.1f s; %s\n", came_to(verdict::passed), results.size(), seconds,
                (fs::path(request.output) / "report.html").c_str());
    if (signal != 0) {
        std::printf("velmoor test was told to end, with %zu of %zu done\n", results.size(), jobs.size());
        return kEndedBySignal + signal;
    }
    if (came_to(verdict::set_up_failed) > 0) return 2;
    return came_to(verdict::failed) > 0 ? 1 : 0;
}

}  // namespace velmoor
