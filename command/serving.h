// `velmoor mcp` and `velmoor serve`: a bridge, with the application that was given, a recording and a page to watch.
#pragma once

#include "command/options.h"

namespace velmoor {

// Exit codes. Until standard input ends.
int serve_client(const options& given);

// Until a signal says so. To be called while the process has one thread: the others inherit what it blocks.
int serve_many(const options& given);

}  // namespace velmoor
