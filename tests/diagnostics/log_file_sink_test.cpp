#include "diagnostics/log_file_sink.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>

#include "diagnostics/clock.h"
#include "diagnostics/logger.h"
#include "diagnostics/mcp_logger.h"
#include "tests/fakes/scratch.h"

namespace orvanic_xr {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

// 2026-01-02 03:04:05.006 UTC
constexpr std::int64_t kStart = 1'767'323'045'006'000'000;
constexpr std::int64_t kSecond = 1'000'000'000;

class LogFile : public testing::Test {
 protected:
    LogFile() { tzset(); }
    ~LogFile() override { LogFileSink::instance().end_session(); }

    // What `work` writes to standard error.
    template <typename Work>
    static std::string ErrorsOf(const Work& work) {
        CaptureStderr();
        work();
        return GetCapturedStderr();
    }
    std::string Header(const std::string& started) const {
        return "==== orvanic_xr session ====\n  started: " + started + "\n  pid: " + pid_ +
               "\n  platform: linux\n  executable: " + std::filesystem::read_symlink("/proc/self/exe").string() +
               "\n============================\n";
    }

    const std::string pid_ = std::to_string(getpid());
    ScratchDirectory scratch_;
    const std::string root_ = scratch_.path() + "/velmoor/logs";
    const std::string directory_ = root_ + "/api-layer_2026-01-02_03-04-05-006_" + pid_;
    const std::string path_ = directory_ + "/api_layer.log";
    ScopedVariable zone_{"TZ", "UTC"};
    ScopedVariable state_home_{"XDG_STATE_HOME", scratch_.path()};
    FakeClock clock_{kStart, 0};
    LogFileSink& sink_ = LogFileSink::instance();
};

TEST_F(LogFile, HoldsTheLinesOfBothLoggersBetweenHeaderAndFooter) {
    const std::string errors = ErrorsOf([&] {
        CaptureStdout();
        LogInfo("before");
        sink_.begin_session("api-layer");
        LogInfo("shown \x1b[1mbold\x1b[0m");
        mcp::log_warning("server");
        clock_.Advance(kSecond);
        LogError("failed");
        sink_.end_session();
        LogInfo("after");
        mcp::log_info("server after");
        EXPECT_THAT(GetCapturedStdout(), testing::HasSubstr("[INFO]\x1b[0m shown \x1b[1mbold\x1b[0m\n"));
    });
    EXPECT_EQ(ReadFile(path_), Header("2026-01-02 03:04:05") +
                                   "2026-01-02 03:04:05 [Velmoor] [INFO] shown bold\n"
                                   "2026-01-02 03:04:05 [cpp-mcp]   [WARNING] server\n"
                                   "2026-01-02 03:04:06 [Velmoor] [ERROR] failed\n"
                                   "==== session ended at 2026-01-02 03:04:06 ====\n");
    EXPECT_EQ(errors, "[Velmoor] file logging enabled: " + path_ +
                          "\n"
                          "\x1b[90m2026-01-02 03:04:06\x1b[0m [Velmoor] \x1b[31m[ERROR]\x1b[0m failed\n"
                          "\x1b[90m2026-01-02 03:04:06\x1b[0m [cpp-mcp]   \x1b[32m[INFO]\x1b[0m server after\n");
}

TEST_F(LogFile, EachSessionHasItsOwn) {
    ErrorsOf([&] {
        sink_.begin_session("");
        sink_.write_line("first");
        sink_.end_session();
        clock_.Advance(kSecond);
        sink_.begin_session("b-2");
        sink_.end_session();
        sink_.end_session();
    });
    EXPECT_THAT(FilesBelow(root_), testing::UnorderedElementsAre("2026-01-02_03-04-05-006_" + pid_ + "/orvanic_xr.log",
                                                                 "b-2_2026-01-02_03-04-06-006_" + pid_ + "/b_2.log"));
    EXPECT_EQ(ReadFile(root_ + "/b-2_2026-01-02_03-04-06-006_" + pid_ + "/b_2.log"),
              Header("2026-01-02 03:04:06") + "==== session ended at 2026-01-02 03:04:06 ====\n");
}

TEST_F(LogFile, ThatCannotBeMadeIsToldOnceAndLeftOut) {
    std::ofstream(scratch_.path() + "/file") << "not a directory";
    const std::string long_name(250, 'n');
    const std::string stem = "_2026-01-02_03-04-05-006_" + pid_;
    const struct {
        std::string state_home;
        std::string session;
        std::string told;
    } rows[] = {
        {scratch_.path() + "/file", "s",
         "failed to create log root '" + scratch_.path() + "/file/velmoor/logs' — file logging disabled"},
        {scratch_.path(), long_name,
         "failed to create session dir '" + root_ + "/" + long_name + stem + "' — file logging disabled"},
        {scratch_.path(), "a/b", "failed to open '" + root_ + "/a/b" + stem + "/a/b.log' — file logging disabled"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.session);
        const ScopedVariable state_home("XDG_STATE_HOME", row.state_home);
        CaptureStdout();
        EXPECT_EQ(ErrorsOf([&] {
                      sink_.begin_session(row.session);
                      LogInfo("goes on");
                  }),
                  "[Velmoor] LogFileSink: " + row.told + "\n");
        EXPECT_THAT(GetCapturedStdout(), testing::EndsWith("goes on\n"));
    }
    EXPECT_THAT(ErrorsOf([&] { sink_.begin_session("api-layer"); }), testing::HasSubstr("enabled"));
}

TEST_F(LogFile, KeepsNothingMoreAfterAFailedWriteUntilTheNextSession) {
    ErrorsOf([&] { sink_.begin_session("api-layer"); });
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto handler_before = std::signal(SIGXFSZ, SIG_IGN);
    const std::string header = ReadFile(path_);
    rlimit full = before;
    full.rlim_cur = header.size();
    setrlimit(RLIMIT_FSIZE, &full);
    sink_.write_line("no room");
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler_before);

    sink_.write_line("room, but failed");
    sink_.end_session();
    EXPECT_EQ(ReadFile(path_), header);
    clock_.Advance(kSecond);
    EXPECT_THAT(ErrorsOf([&] { sink_.begin_session("api-layer"); }), testing::HasSubstr("enabled"));
    sink_.write_line("again");
    EXPECT_THAT(ReadFile(root_ + "/api-layer_2026-01-02_03-04-06-006_" + pid_ + "/api_layer.log"),
                testing::EndsWith("=\nagain\n"));
}

TEST_F(LogFile, HoldsEachLineAtOnceWithoutItsEscapeSequencesAndWithOneNewline) {
    const struct {
        std::string text;
        std::string in_file;
    } rows[] = {
        {"newline\n", "newline\n"},
        {"two\n\n", "two\n\n"},
        {"", "\n"},
        {"\x1b[31mred\x1b[0m", "red\n"},
        {"\x1b[38;2;1;2;3mrgb", "rgb\n"},
        {"never ends\x1b[12;34", "never ends\n"},
        {"\x1b[@~9Kpast signs", "past signs\n"},
        {"a\x1b"
         "b\x1b\x1b[1mc\x1b",
         "a\x1b"
         "b\x1b"
         "c\x1b\n"},
        {"newline in \x1b[\nm", "newline in \n"},
        {std::string("nul\0in", 6), std::string("nul\0in\n", 7)},
    };
    ErrorsOf([&] { sink_.begin_session("api-layer"); });
    std::string expected = ReadFile(path_);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.in_file);
        sink_.write_line(row.text);
        expected += row.in_file;
        EXPECT_EQ(ReadFile(path_), expected);
    }
}

TEST(LogRoot, ComesFromTheStateHomeThenTheHomeThenTmp) {
    const struct {
        std::optional<std::string> state_home;
        std::optional<std::string> home;
        const char* root;
    } rows[] = {
        {"/state", "/home/a", "/state/velmoor/logs"},
        {"", "/home/a", "/home/a/.local/state/velmoor/logs"},
        {std::nullopt, "/home/a", "/home/a/.local/state/velmoor/logs"},
        {std::nullopt, "", "/.local/state/velmoor/logs"},
        {std::nullopt, std::nullopt, "/tmp/velmoor/logs"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.root);
        const ScopedVariable state_home("XDG_STATE_HOME", row.state_home);
        const ScopedVariable home("HOME", row.home);
        EXPECT_EQ(LogRoot(), row.root);
    }
}

TEST(CreateDirectories, TakesBothSeparatorsAndFailsOnlyWhereThePathIsNotThere) {
    const ScratchDirectory scratch;
    std::ofstream(scratch.path() + "/file") << "not a directory";
    for (const char* path : {"/a", "/a", "/b//c/", "/d\\e", "/file"}) {
        EXPECT_TRUE(CreateDirectories(scratch.path() + path)) << path;
    }
    EXPECT_FALSE(CreateDirectories(scratch.path() + "/file/g"));
    EXPECT_FALSE(CreateDirectories(scratch.path() + "/" + std::string(300, 'x')));
    EXPECT_FALSE(CreateDirectories(""));
    for (const char* directory : {"/a", "/b/c", "/d", "/d\\e"}) {
        EXPECT_TRUE(std::filesystem::is_directory(scratch.path() + directory)) << directory;
    }
    EXPECT_EQ(std::filesystem::status(scratch.path() + "/a").permissions() & std::filesystem::perms::group_write,
              std::filesystem::perms::none);
}

}  // namespace
}  // namespace orvanic_xr
