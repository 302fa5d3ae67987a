// Counts what a thread allocates with new. A program that wants it takes allocation_counter.cpp among its sources,
// which replaces the global operators.
#pragma once

#include <cstddef>

namespace orvanic_xr {

// Allocations of the calling thread since it began.
std::size_t AllocationsOfThisThread() noexcept;

}  // namespace orvanic_xr
