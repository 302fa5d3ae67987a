#pragma once

#include <string>

namespace orvanic_xr {

// The bytes of a file, or as many as fit into 16 MiB; nothing if it can't be read.
std::string WholeFile(const std::string& path);

}  // namespace orvanic_xr
