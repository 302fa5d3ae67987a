#include "simulator/runtime.h"

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "simulator/session.h"

namespace simulator {

Runtime& Runtime::instance() {
    static Runtime& the = *new Runtime;
    return the;
}

bool Runtime::IsAlive(XrInstance handle) const {
    return handles.Find<Instance>(reinterpret_cast<std::uint64_t>(handle)) != nullptr;
}

bool Runtime::IsAlive(XrSession handle) const {
    return handles.Find<Session>(reinterpret_cast<std::uint64_t>(handle)) != nullptr;
}

void Runtime::EndProcess(std::uint64_t destroyed_handle) const {
    std::fprintf(stderr, "VELMOOR_SIM_STRICT: xr%s was called with the destroyed handle 0x%" PRIx64 "\n", entry_point,
                 destroyed_handle);
    std::abort();
}

std::int64_t RealNow() {
    const auto since_boot = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(since_boot).count();
}

XrTime Now() {
    return Runtime::instance().clock.At(RealNow());
}

}  // namespace simulator
