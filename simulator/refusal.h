// How work inside the runtime says no: with the code that the caller gets.
#pragma once

#include <openxr/openxr.h>

namespace simulator {

struct Refusal {
    XrResult result;
};

[[noreturn]] inline void Refuse(XrResult result) {
    throw Refusal{result};
}

inline void Require(bool condition) {
    if (!condition) Refuse(XR_ERROR_VALIDATION_FAILURE);
}

// The record is there and says that it is what the function takes.
template <class Record>
void RequireType(const Record* record, XrStructureType type) {
    Require(record && record->type == type);
}

}  // namespace simulator
