// What a test may write to and change of its surroundings, put back in the end.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace orvanic_xr {

class ScratchDirectory {
 public:
    ScratchDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "velmoor_test_XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::string& path() const { return path_; }

 private:
    std::string path_;
};

// A variable of the environment with another value, or with none.
class ScopedVariable {
 public:
    ScopedVariable(const char* name, std::optional<std::string> value) : name_(name) {
        if (const char* before = std::getenv(name)) before_ = before;
        Set(value);
    }
    ~ScopedVariable() { Set(before_); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
    void Set(const std::optional<std::string>& value) {
        if (value) {
            setenv(name_, value->c_str(), 1);
        } else {
            unsetenv(name_);
        }
    }

    const char* name_;
    std::optional<std::string> before_;
};

inline std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The files below `directory`, as paths relative to it.
inline std::vector<std::string> FilesBelow(const std::filesystem::path& directory) {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        if (entry.is_regular_file()) files.push_back(entry.path().lexically_relative(directory).string());
    }
    return files;
}

}  // namespace orvanic_xr
