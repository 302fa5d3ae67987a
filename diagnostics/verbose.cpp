#include "diagnostics/verbose.h"

#include <atomic>
#include <cstdlib>
#include <string_view>

#include "diagnostics/logger.h"

namespace orvanic_xr {

namespace {

enum class Answer { kFromEnvironment, kNo, kYes };
std::atomic<Answer> told_answer{Answer::kFromEnvironment};

}  // namespace

bool VerboseLogging() noexcept {
    const Answer told = told_answer.load(std::memory_order_relaxed);
    if (told != Answer::kFromEnvironment) return told == Answer::kYes;
    static const bool verbose = ApplyVerboseSwitch();
    return verbose;
}

bool ApplyVerboseSwitch() noexcept {
    const char* value = std::getenv("ORVANICXR_VERBOSE");
    if (!value || std::string_view(value) != "1") return false;
    Logger::instance().set_level(kLogDebug);
    return true;
}

ScopedVerboseAnswer::ScopedVerboseAnswer(bool verbose) noexcept {
    told_answer.store(verbose ? Answer::kYes : Answer::kNo, std::memory_order_relaxed);
}

ScopedVerboseAnswer::~ScopedVerboseAnswer() {
    told_answer.store(Answer::kFromEnvironment, std::memory_order_relaxed);
}

}  // namespace orvanic_xr
