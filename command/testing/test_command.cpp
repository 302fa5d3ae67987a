#include "command/testing/test_command.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "command/testing/report.h"

namespace velmoor {
namespace {

namespace fs = std::filesystem;
using clock = std::chrono::steady_clock;

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
    std::vector<job> jobs;
    for (int repetition = 1; repetition <= request.repeat; ++repetition) {
        for (const test_file& each : tests) jobs.push_back({&each, repetition});
    }

    const auto begin = clock::now();
    std::vector<test_result> results(jobs.size());
    std::atomic<std::size_t> next{0};
    std::mutex mutex;  // done, and what is printed
    std::size_t done = 0;
    const auto work = [&] {
        for (std::size_t i; (i = next++) < jobs.size();) {
            test_result& result = results[i];
            try {
                result = run_test(*jobs[i].test, request.run);
            } catch (const std::exception& e) {
                result.name = jobs[i].test->name;
                result.path = jobs[i].test->path;
                result.came_to = verdict::set_up_failed;
                result.message = result.path + ":1: " + e.what();
            }
            result.repetition = jobs[i].repetition;
            const std::lock_guard lock(mutex);
            tell(result, ++done, jobs.size());
        }
    };
    std::vector<std::thread> workers(static_cast<std::size_t>(request.at_a_time));
    for (std::thread& each : workers) each = std::thread(work);
    for (std::thread& each : workers) each.join();

    const double seconds = std::chrono::duration<double>(clock::now() - begin).count();
    const auto has = [&](verdict which) {
        return std::any_of(results.begin(), results.end(), [&](const auto& each) { return each.came_to == which; });
    };
    for (std::size_t i = 0; i < results.size(); ++i) {
        if (results[i].came_to != verdict::passed) keep(results[i], request.output, i + 1);
    }
    write(fs::path(request.output) / "junit.xml", junit_report(results, seconds));
    write(fs::path(request.output) / "report.html", html_report(results, seconds));
    const auto passed =
        std::count_if(results.begin(), results.end(), [](const auto& each) { return each.came_to == verdict::passed; });
    std::printf("%td of %zu passed in %.1f s; %s\n", passed, results.size(), seconds,
                (fs::path(request.output) / "report.html").c_str());
    if (has(verdict::set_up_failed)) return 2;
    return has(verdict::failed) ? 1 : 0;
}

}  // namespace velmoor
