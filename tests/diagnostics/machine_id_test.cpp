#include "diagnostics/machine_id.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <set>

#include "tests/fakes/scratch.h"

namespace Machineid {
namespace {

using orvanic_xr::FilesBelow;
using orvanic_xr::ReadFile;
using orvanic_xr::ScopedVariable;
using orvanic_xr::ScratchDirectory;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

constexpr const char* kId = "0f8fad5b-d9cb-469f-a165-70867728950e";
constexpr const char* kUpperCaseId = "0F8FAD5B-D9CB-469F-A165-70867728950E";

std::optional<std::string> NoEntry() {
    return std::nullopt;
}

// A user without an entry in the user database, whose HOME is a scratch directory.
class MachineIdFile : public testing::Test {
 protected:
    static std::string NewProcessGets() { return MachineId(std::make_shared<MachineIdHelper>(NoEntry)).get(); }

    ScratchDirectory scratch_;
    ScopedVariable home_{"HOME", scratch_.path()};
    const std::filesystem::path directory_ = scratch_.path() + "/.config/KestXR/device_data";
    const std::filesystem::path path_ = directory_ / "device_id.txt";
};

TEST_F(MachineIdFile, IsMadeOnceAndReadOnceByEachProcess) {
    MachineId process(std::make_shared<MachineIdHelper>(NoEntry));
    const std::string id = process.get();
    EXPECT_EQ(id.size(), 36u);
    EXPECT_EQ(ReadFile(path_), id);
    EXPECT_EQ(NewProcessGets(), id);
    std::ofstream(path_) << kId;
    EXPECT_EQ(process.get(), id);
    EXPECT_EQ(NewProcessGets(), kId);
}

TEST_F(MachineIdFile, KeepsAValidFirstLineAndReplacesAllElse) {
    const struct {
        std::string content;
        const char* kept;  // null if replaced
    } rows[] = {
        {kUpperCaseId, kUpperCaseId},
        {std::string(kId) + "\n", kId},
        {std::string(kId) + "\nmore\n" + std::string(5000, 'x'), kId},
        {"", nullptr},
        {std::string(kId) + " ", nullptr},
        {std::string(kId) + "\r\n", nullptr},
        {std::string(kId) + std::string("\0x", 2), nullptr},
        {"0f8fad5b-d9cb-469f-a165-70867728950g", nullptr},
        {std::string(1 << 20, '0'), nullptr},
    };
    std::filesystem::create_directories(directory_);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.content.substr(0, 60));
        std::ofstream(path_, std::ios::binary) << row.content;
        const std::string id = NewProcessGets();
        if (row.kept) {
            EXPECT_EQ(id, row.kept);
            EXPECT_EQ(ReadFile(path_), row.content);
        } else {
            EXPECT_TRUE(MachineIdHelper().is_valid(id)) << id;
            EXPECT_NE(id, row.content);
            EXPECT_EQ(ReadFile(path_), id);
        }
    }
}

TEST_F(MachineIdFile, ThatCannotBeMadeHoldsForTheProcessAlone) {
    const auto expect_id_and_errors = [](const std::string& errors) {
        CaptureStderr();
        const std::string id = NewProcessGets();
        EXPECT_EQ(GetCapturedStderr(), errors);
        EXPECT_TRUE(MachineIdHelper().is_valid(id)) << id;
    };
    std::filesystem::create_directories(path_);  // a directory where the file should be
    expect_id_and_errors("");
    std::filesystem::remove_all(scratch_.path() + "/.config");
    std::ofstream(scratch_.path() + "/.config") << "in the way";
    expect_id_and_errors("ERROR: Failed to create device data directory\n");
    EXPECT_EQ(MachineIdHelper(NoEntry).id_file_path(), "");
    const auto say_it_to_nobody = [] {
        int ends[2];
        if (pipe(ends) != 0 || close(ends[0]) != 0 || dup2(ends[1], 2) != 2) std::exit(1);
        MachineIdHelper(NoEntry).id_file_path();
        std::exit(0);
    };
    EXPECT_EXIT(say_it_to_nobody(), testing::ExitedWithCode(0), "");
    EXPECT_THAT(FilesBelow(scratch_.path()), testing::ElementsAre(".config"));
}

TEST_F(MachineIdFile, LiesInTheHomeOfTheUserDatabaseBeforeThatOfTheEnvironment) {
    MachineIdHelper with_entry([]() -> std::optional<std::string> { return "/home/by-entry"; });
    EXPECT_EQ(with_entry.config_directory(), "/home/by-entry/.config");
    EXPECT_EQ(MachineIdHelper(NoEntry).config_directory(), scratch_.path() + "/.config");
    EXPECT_EQ(MachineIdHelper(NoEntry).id_file_path(), path_);
    EXPECT_TRUE(std::filesystem::is_directory(directory_));
}

TEST(MachineId, IsARandomVersion4UuidInLowerCase) {
    MachineIdHelper helper;
    std::set<std::string> ids;
    for (int i = 0; i < 50; ++i) {
        const std::string id = helper.generate();
        SCOPED_TRACE(id);
        EXPECT_TRUE(helper.is_valid(id));
        EXPECT_EQ(id.find_first_not_of("0123456789abcdef-"), std::string::npos);
        EXPECT_EQ(id[14], '4');
        EXPECT_NE(std::string("89ab").find(id[19]), std::string::npos);
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 50u);
}

}  // namespace
}  // namespace Machineid
