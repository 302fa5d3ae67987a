#pragma once

namespace orvanic_xr {

// Whether ORVANICXR_VERBOSE is exactly "1". The first call reads it, opens Logger to debug lines if it is, and
// settles the answer for the life of the process.
bool VerboseLogging() noexcept;

// What the first call of VerboseLogging does.
bool ApplyVerboseSwitch() noexcept;

// While one lives, VerboseLogging answers `verbose`, and Logger's level is untouched by it. For tests.
class ScopedVerboseAnswer {
 public:
    explicit ScopedVerboseAnswer(bool verbose) noexcept;
    ~ScopedVerboseAnswer();
    ScopedVerboseAnswer(const ScopedVerboseAnswer&) = delete;
    ScopedVerboseAnswer& operator=(const ScopedVerboseAnswer&) = delete;
};

}  // namespace orvanic_xr
