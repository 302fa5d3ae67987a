#pragma once

// A random identity of one user on one machine, kept in a small file of the user's configuration directory. It
// tags telemetry events and is used for nothing else.

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace Machineid {

// The home of this user by the user database, where there is an entry.
std::optional<std::string> HomeOfUserDatabase();

// The operations on the identity file. None reports a failure otherwise than by an empty answer.
class MachineIdHelper {
 public:
    using HomeSource = std::optional<std::string> (*)();

    explicit MachineIdHelper(HomeSource home_of_user = HomeOfUserDatabase);
    virtual ~MachineIdHelper();

    // Creates the directory of the file. If it can't, says so on standard error and gives an empty path.
    virtual std::filesystem::path id_file_path();
    virtual bool exists(const std::filesystem::path& path);
    virtual std::string read(const std::filesystem::path& path);  // the first line
    virtual void write(const std::filesystem::path& path, const std::string& text);
    virtual bool is_valid(const std::string& text);
    // "<home>/.config", or empty without a home. The user database comes before HOME.
    virtual std::filesystem::path config_directory();
    virtual std::string generate();  // a version 4 UUID in lower case

 private:
    HomeSource home_of_user_;
};

// Reads the identity once and keeps it. Has no lock: its caller has one.
class MachineId {
 public:
    explicit MachineId(std::shared_ptr<MachineIdHelper> helper);
    virtual ~MachineId();

    // A missing or damaged file is written anew. If that fails the identity holds for this process alone.
    virtual std::string get();

 private:
    std::shared_ptr<MachineIdHelper> helper_;
    std::string cached_id_;
};

// The identity of this user on this machine, the same for the life of the process.
std::string get_machine_id();

// While one lives, get_machine_id gives `id` and touches no file. For tests; one at a time.
class ScopedMachineId {
 public:
    explicit ScopedMachineId(std::string id);
    ~ScopedMachineId();
    ScopedMachineId(const ScopedMachineId&) = delete;
    ScopedMachineId& operator=(const ScopedMachineId&) = delete;

 private:
    const std::string id_;
};

}  // namespace Machineid
