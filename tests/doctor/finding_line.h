#pragma once

#include <string>

#include "doctor/finding.h"

namespace orvanic_xr {

// "<mark> <text> -> <advice>"
inline std::string FindingLine(const Finding& finding) {
    const char* const mark = finding.mark == Mark::Ok ? "ok" : finding.mark == Mark::Warn ? "warn" : "bad";
    return std::string(mark) + " " + finding.text + " -> " + finding.advice;
}

}  // namespace orvanic_xr
