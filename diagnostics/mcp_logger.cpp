#include "diagnostics/mcp_logger.h"

#include <utility>

namespace mcp {

logger& logger::instance() {
    static logger& the = *new logger;  // never destroyed: threads may log while static destructors run
    return the;
}

void logger::set_level(std::int32_t level) {
    const std::lock_guard lock(mutex_);
    level_.store(level, std::memory_order_relaxed);
}

void logger::set_sink(sink new_sink) {
    const std::lock_guard lock(mutex_);
    sink_.swap(new_sink);
}

void logger::write(std::string line) {
    sink current;
    {
        const std::lock_guard lock(mutex_);
        current = sink_;
    }
    if (current) {
        current(line);
        return;
    }
    line.push_back('\n');
    orvanic_xr::WriteToStandardError(line);
}

}  // namespace mcp
