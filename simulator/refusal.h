// How work inside the runtime says no: with the code that the caller gets, and for the user's eyes why.
#pragma once

#include <openxr/openxr.h>

#include <new>

namespace simulator {

struct Refusal {
    XrResult result;
    // One line, for what the user can change. Null where the code says all.
    const char* reason = nullptr;
};

// `reason` lives for ever.
[[noreturn]] inline void Refuse(XrResult result, const char* reason = nullptr) {
    throw Refusal{result, reason};
}

inline void Require(bool condition) {
    if (!condition) Refuse(XR_ERROR_VALIDATION_FAILURE);
}

// The record is there and says that it is what the function takes.
template <class Record>
void RequireType(const Record* record, XrStructureType type) {
    Require(record && record->type == type);
}

// Runs `work` and turns whatever it throws into the code for the caller; `tell(reason)` gets to know why.
template <class Work, class Tell>
XrResult WithoutThrowing(Work work, Tell tell) noexcept {
    try {
        return work();
    } catch (const Refusal& refusal) {
        if (refusal.reason) tell(refusal.reason);
        return refusal.result;
    } catch (const std::bad_alloc&) {
        return XR_ERROR_OUT_OF_MEMORY;
    } catch (...) {
        return XR_ERROR_RUNTIME_FAILURE;
    }
}

}  // namespace simulator
