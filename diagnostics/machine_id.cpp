#include "diagnostics/machine_id.h"

#include <pwd.h>
#include <re2/re2.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "diagnostics/log_line.h"

namespace Machineid {

namespace {

std::atomic<const std::string*> told_id{nullptr};

}  // namespace

std::optional<std::string> HomeOfUserDatabase() {
    const long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested == -1 ? 16384 : static_cast<std::size_t>(suggested));
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    if (!found) return std::nullopt;
    return found->pw_dir;
}

MachineIdHelper::MachineIdHelper(HomeSource home_of_user) : home_of_user_(home_of_user) {}

MachineIdHelper::~MachineIdHelper() = default;

std::filesystem::path MachineIdHelper::id_file_path() {
    const std::filesystem::path directory = config_directory() / "KestXR" / "device_data";
    try {
        std::filesystem::create_directories(directory);
    } catch (const std::exception&) {
        orvanic_xr::WriteToStandardError("ERROR: Failed to create device data directory\n");
        return {};
    }
    return directory / "device_id.txt";
}

bool MachineIdHelper::exists(const std::filesystem::path& path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

std::string MachineIdHelper::read(const std::filesystem::path& path) {
    // Whatever the file has become, no more of it is read than shows that its first line is no identity.
    std::array<char, 256> start;
    std::ifstream file(path);
    file.read(start.data(), start.size());
    const std::string_view text(start.data(), static_cast<std::size_t>(file.gcount()));
    return std::string(text.substr(0, text.find('\n')));
}

void MachineIdHelper::write(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::trunc) << text;
}

bool MachineIdHelper::is_valid(const std::string& text) {
    static const RE2& uuid = *new RE2("^[0-9a-fA-F]{8}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{12}$");
    return RE2::FullMatch(text, uuid);
}

std::filesystem::path MachineIdHelper::config_directory() {
    std::optional<std::string> home = home_of_user_();
    if (!home) {
        const char* from_environment = std::getenv("HOME");
        if (!from_environment) return {};
        home = from_environment;
    }
    return std::filesystem::path(*home) / ".config";
}

std::string MachineIdHelper::generate() {
    std::random_device device("default");
    std::array<std::uint32_t, std::mt19937::state_size> seeds;
    std::generate(seeds.begin(), seeds.end(), std::ref(device));
    std::seed_seq sequence(seeds.begin(), seeds.end());
    std::mt19937 twister(sequence);
    std::uniform_int_distribution<std::uint32_t> any;

    std::array<std::uint8_t, 16> bytes;
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        const std::uint32_t value = any(twister);
        for (std::size_t byte = 0; byte < 4; ++byte) bytes[i + byte] = static_cast<std::uint8_t>(value >> (8 * byte));
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0f) | 0x40);
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3f) | 0x80);

    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
        text.push_back(kDigits[bytes[i] >> 4]);
        text.push_back(kDigits[bytes[i] & 0x0f]);
    }
    return text;
}

MachineId::MachineId(std::shared_ptr<MachineIdHelper> helper) : helper_(std::move(helper)) {}

MachineId::~MachineId() = default;

std::string MachineId::get() {
    if (!cached_id_.empty()) return cached_id_;
    const std::filesystem::path path = helper_->id_file_path();
    if (helper_->exists(path)) {
        cached_id_ = helper_->read(path);
        if (helper_->is_valid(cached_id_)) return cached_id_;
    }
    cached_id_ = helper_->generate();
    helper_->write(path, cached_id_);
    return cached_id_;
}

std::string get_machine_id() {
    if (const std::string* told = told_id.load()) return *told;
    static MachineId& the = *new MachineId(std::make_shared<MachineIdHelper>());
    return the.get();
}

ScopedMachineId::ScopedMachineId(std::string id) : id_(std::move(id)) {
    told_id = &id_;
}

ScopedMachineId::~ScopedMachineId() {
    told_id = nullptr;
}

}  // namespace Machineid
