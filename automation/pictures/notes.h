// What the log is to say of pictures that are not whole, each once.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace automation {

enum class Note : std::uint8_t { kUnreadable = 1, kFailed = 2, kNotReleased = 4, kUnknownType = 8 };

// Any thread.
class Notes {
 public:
    // `line` ends with its call. Called with no lock held.
    using Log = void (*)(const char* line);

    explicit Notes(Log log) : log_(log) {}

    void Once(Note note, const std::string& line) {
        const auto bit = static_cast<std::uint8_t>(note);
        if ((told_.fetch_or(bit) & bit) == 0) log_(line.c_str());
    }

 private:
    const Log log_;
    std::atomic<std::uint8_t> told_ = 0;
};

}  // namespace automation
