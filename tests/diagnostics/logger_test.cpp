#include "diagnostics/logger.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <thread>

#include "diagnostics/append_file.h"
#include "diagnostics/clock.h"
#include "diagnostics/mcp_logger.h"
#include "diagnostics/number_text.h"
#include "diagnostics/verbose.h"
#include "diagnostics/write_signals.h"
#include "tests/fakes/comma_locale.h"
#include "tests/fakes/scratch.h"

namespace orvanic_xr {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kNewYear2026 = 1'767'225'600 * kSecond;

template <typename... Parts>
std::string Joined(const Parts&... parts) {
    std::string text;
    (AppendLogPart(text, parts), ...);
    return text;
}

enum Plain { kPlain = -25 };
enum class Scoped : unsigned char { kHigh = 200 };

TEST(LogParts, AreWrittenAsAStreamInTheCLocaleWritesThem) {
    const CommaLocale host;
    char text[] = "array";
    const struct {
        std::string got;
        std::string expected;
    } rows[] = {
        {Joined("a", std::string("b"), std::string_view("c"), 'd', text), "abcdarray"},
        {Joined(true, false), "10"},
        {Joined(1234567, ' ', -1), "1234567 -1"},
        {Joined(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615"},
        {Joined(kPlain, ' ', Scoped::kHigh), "-25 200"},
        {Joined(0.5, ' ', 1.0f / 3, ' ', 1234567.0, ' ', 100000.0), "0.5 0.333333 1.23457e+06 100000"},
        {Joined(-0.0, ' ', 1e-5, ' ', 1e300), "-0 1e-05 1e+300"},
        {Joined(std::numeric_limits<double>::infinity(), ' ', std::numeric_limits<double>::quiet_NaN()), "inf nan"},
        {Joined("for session %p", reinterpret_cast<void*>(0x7f12a0)), "for session %p0x7f12a0"},
        {Joined(static_cast<const int*>(nullptr)), "0"},
        {Joined(PeerText{"plain \\ \"\xC3\xA9\xC2\xA0\""}), "plain \\ \"\xC3\xA9\xC2\xA0\""},
        {Joined(PeerText{"a\n[\x1b\x7f\xC2\x9B"}), "a\\x0a[\\x1b\\x7f\\xc2\x9B"},
        {ShownPeerText(std::string(200, 'x')), std::string(200, 'x')},
        {ShownPeerText(std::string(199, 'x') + "\xC3\xA9"), std::string(199, 'x') + "...(201 bytes)"},
    };
    for (const auto& row : rows) EXPECT_EQ(row.got, row.expected);
}

class LoggerLines : public testing::Test {
 protected:
    LoggerLines() { tzset(); }
    ~LoggerLines() override { Logger::instance().set_level(kLogInfo); }

    ScopedVariable zone_{"TZ", "UTC"};
    FakeClock clock_{kNewYear2026, 0};
};

TEST_F(LoggerLines, CarryTimePrefixTagAndParts) {
    Logger::instance().set_level(-1);
    CaptureStdout();
    CaptureStderr();
    LogDebug("d", 0);
    LogInfo("i");
    clock_.Advance(61 * kSecond);
    LogWarning("w");
    LogError("e", 3);
    Log(4, "no tag");
    Log(-1, "none either");
    EXPECT_EQ(GetCapturedStdout(),
              "\x1b[90m2026-01-01 00:00:00\x1b[0m [Velmoor] \x1b[36m[DEBUG]\x1b[0m d0\n"
              "\x1b[90m2026-01-01 00:00:00\x1b[0m [Velmoor] \x1b[32m[INFO]\x1b[0m i\n"
              "\x1b[90m2026-01-01 00:01:01\x1b[0m [Velmoor] \x1b[33m[WARNING]\x1b[0m w\n"
              "\x1b[90m2026-01-01 00:01:01\x1b[0m [Velmoor] no tag\n"
              "\x1b[90m2026-01-01 00:01:01\x1b[0m [Velmoor] none either\n");
    EXPECT_EQ(GetCapturedStderr(), "\x1b[90m2026-01-01 00:01:01\x1b[0m [Velmoor] \x1b[31m[ERROR]\x1b[0m e3\n");
}

bool IsPending(int signal) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

// Fails with `code` unless write signals are held and pending, or neither.
void ExpectWriteSignals(bool held_and_pending, int code) {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
        if (sigismember(&blocked, signal) != int{held_and_pending}) std::exit(code);
        if (IsPending(signal) != held_and_pending) std::exit(code + 1);
    }
}

// Both consoles are pipes that nobody reads, and files have grown as far as they may.
void LogWhereNobodyReads(bool signals_of_host_wait) {
    int ends[2];
    if (pipe(ends) != 0 || close(ends[0]) != 0 || dup2(ends[1], 1) != 1 || dup2(ends[1], 2) != 2) std::exit(1);
    sigset_t both;
    sigemptyset(&both);
    for (const int signal : {SIGPIPE, SIGXFSZ}) sigaddset(&both, signal);
    if (signals_of_host_wait) {
        sigprocmask(SIG_BLOCK, &both, nullptr);
        for (const int signal : {SIGPIPE, SIGXFSZ}) raise(signal);
    }
    AppendFile file;
    if (!file.Open(ScratchDirectory().path() + "/full")) std::exit(2);
    const rlimit nothing{0, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &nothing);
    const auto log = [&file] {
        errno = ERANGE;
        file.Write("x");
        LogInfo("to standard output");
        LogError("to standard error");
        if (errno != ERANGE) std::exit(5);
    };
    log();
    ExpectWriteSignals(signals_of_host_wait, 3);
    if (signals_of_host_wait) std::exit(0);
    std::thread([&] {
        HoldWriteSignalsOnThisThread();
        for (int i = 0; i < 2; ++i) {
            log();
            const ReleasedWriteSignals as_in_the_host;
            ExpectWriteSignals(false, 6);
            log();
            ExpectWriteSignals(false, 8);
        }
    }).join();
    std::exit(0);
}

TEST_F(LoggerLines, ThatNobodyReadsRaiseNoSignal) {
    EXPECT_EXIT(LogWhereNobodyReads(false), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(LogWhereNobodyReads(true), testing::ExitedWithCode(0), "");
}

struct CountedPart {
    int& times_built;
};
void AppendLogPart(std::string& line, const CountedPart& part) {
    ++part.times_built;
    line += "counted";
}

TEST_F(LoggerLines, BelowTheLevelBuildNothing) {
    int times_built = 0;
    CaptureStdout();
    LogDebug(CountedPart{times_built});
    mcp::log_debug(CountedPart{times_built});
    {
        const QuietLines outer(true);
        const QuietLines inner(false);
        LogWarning(CountedPart{times_built});
        mcp::log_warning(CountedPart{times_built});
    }
    EXPECT_EQ(times_built, 0);
    LogInfo(CountedPart{times_built});
    EXPECT_EQ(times_built, 1);
    EXPECT_THAT(GetCapturedStdout(), testing::EndsWith("counted\n"));
}

TEST_F(LoggerLines, OfTheServerGoToStandardErrorOrToTheSinkAlone) {
    CaptureStdout();
    CaptureStderr();
    mcp::log_info("to the console ", 1);
    std::vector<std::string> sunk;
    mcp::logger::instance().set_sink([&sunk](const std::string& line) {
        sunk.push_back(line);
        mcp::logger::instance().set_sink({});  // no lock is held here
    });
    mcp::log_error("to the sink");
    mcp::log_warning("to the console again");
    EXPECT_EQ(GetCapturedStdout(), "");
    EXPECT_EQ(GetCapturedStderr(),
              "\x1b[90m2026-01-01 00:00:00\x1b[0m [cpp-mcp]   \x1b[32m[INFO]\x1b[0m to the console 1\n"
              "\x1b[90m2026-01-01 00:00:00\x1b[0m [cpp-mcp]   \x1b[33m[WARNING]\x1b[0m to the console again\n");
    EXPECT_THAT(sunk, testing::ElementsAre(
                          "\x1b[90m2026-01-01 00:00:00\x1b[0m [cpp-mcp]   \x1b[31m[ERROR]\x1b[0m to the sink"));
}

TEST_F(LoggerLines, OpenToDebugOnlyWhenTheSwitchIsExactlyOne) {
    const struct {
        std::optional<std::string> value;
        bool verbose;
    } rows[] = {{std::nullopt, false}, {"", false},  {"true", false}, {"01", false},
                {"1 ", false},         {"0", false}, {"1", true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value.value_or("unset"));
        Logger::instance().set_level(kLogWarning);
        const ScopedVariable variable("ORVANICXR_VERBOSE", row.value);
        EXPECT_EQ(ApplyVerboseSwitch(), row.verbose);
        EXPECT_EQ(Logger::instance().level(), row.verbose ? kLogDebug : kLogWarning);
    }
}

}  // namespace
}  // namespace orvanic_xr
