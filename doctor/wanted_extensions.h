// What the tools lose where the runtime lacks an extension.
#pragma once

#include <set>
#include <string>

#include "doctor/finding.h"

namespace orvanic_xr {

// The tools that are not offered at all under a runtime with these extensions.
std::set<std::string> MissingTools(const std::set<std::string>& offered);

// The layer that brings some of them to any runtime.
enum class AutomationLayer { kMissing, kInstalled, kOn };

Findings JudgeExtensions(const std::set<std::string>& offered, AutomationLayer automation);

}  // namespace orvanic_xr
