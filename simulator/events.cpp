#include "simulator/events.h"

#include <algorithm>

#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/session.h"

namespace simulator {

void EventQueue::Insert(const Entry& entry) {
    if (entries_.size() >= kMaxEvents) {
        ++lost_;
        return;
    }
    const auto later = [](XrTime due, const Entry& other) { return due < other.due; };
    entries_.insert(std::upper_bound(entries_.begin(), entries_.end(), entry.due, later), entry);
}

bool EventQueue::Pop(XrTime now, XrEventDataBuffer& buffer) {
    if (lost_ > 0) {
        const XrEventDataEventsLost event = {XR_TYPE_EVENT_DATA_EVENTS_LOST, nullptr, lost_};
        std::memcpy(&buffer, &event, sizeof(event));
        lost_ = 0;
        return true;
    }
    if (entries_.empty() || entries_.front().due > now) return false;
    buffer = entries_.front().buffer;
    entries_.pop_front();
    return true;
}

XrResult PollEvent(XrInstance instance, XrEventDataBuffer* buffer) {
    return Guarded([&](Runtime& runtime) {
        Instance& owner = *runtime.Get(instance);
        RequireType(buffer, XR_TYPE_EVENT_DATA_BUFFER);
        // While nobody has frames, the application waits for what comes next, and a clock that stands goes on to that.
        const auto runs = [](const Session& session) { return session.running; };
        if (!runtime.clock.Flows() && runtime.handles.CountIf<Session>(runs) == 0) {
            runtime.clock.SkipTo(owner.events.NextDue(), RealNow());
        }
        return owner.events.Pop(Now(), *buffer) ? XR_SUCCESS : XR_EVENT_UNAVAILABLE;
    });
}

}  // namespace simulator
