// The whole examination: what is looked at, in which order, and what comes of it.
#pragma once

#include "doctor/environment.h"
#include "doctor/finding.h"

namespace orvanic_xr {

// To be called while the process has one thread.
Findings Examine(const Environment& environment);

}  // namespace orvanic_xr
