// Arguments for a tool out of the bytes of a fuzzer: as its schema wants them for the most part, so that they get far,
// and then with a value of another kind, a parameter missing or one too many.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include "mcp/json.h"

namespace orvanic_xr {

// As they come out of the parser: nested no deeper than it takes, and valid UTF-8.
mcp::json MakeArguments(const mcp::json& schema, FuzzedDataProvider& bytes);

}  // namespace orvanic_xr
