#include "command/bridge/pending_call.h"

#include <condition_variable>
#include <mutex>
#include <utility>

namespace velmoor {

struct pending_call::arrival {
    std::mutex mutex;  // outcome
    std::condition_variable changed;
    std::optional<json> outcome;
};

pending_call::pending_call(tool_source& through, tool_call call)
    : through_(through), id_(through.new_call_id()), arrived_(std::make_shared<arrival>()) {
    call.done = [arrived = arrived_](json&& outcome) {
        {
            const std::lock_guard lock(arrived->mutex);
            arrived->outcome = std::move(outcome);
        }
        arrived->changed.notify_all();
    };
    through_.start(id_, std::move(call));
}

std::optional<json> pending_call::wait_for(std::chrono::milliseconds time) {
    std::unique_lock lock(arrived_->mutex);
    arrived_->changed.wait_for(lock, time, [this] { return arrived_->outcome.has_value(); });
    return std::move(arrived_->outcome);
}

bool pending_call::is_answered() const {
    const std::lock_guard lock(arrived_->mutex);
    return arrived_->outcome.has_value();
}

json pending_call::wait() {
    std::unique_lock lock(arrived_->mutex);
    arrived_->changed.wait(lock, [this] { return arrived_->outcome.has_value(); });
    return std::move(*arrived_->outcome);
}

}  // namespace velmoor
