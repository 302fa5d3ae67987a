// Events that wait for xrPollEvent, in the order of their due times.
#pragma once

#include <openxr/openxr.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>

namespace simulator {

class EventQueue {
 public:
    static constexpr std::size_t kMaxEvents = 1024;

    // The event is shown from `due` on; 0 is at once.
    template <class Event>
    void Push(const Event& event, XrTime due = 0) {
        static_assert(sizeof(Event) <= sizeof(XrEventDataBuffer));
        Entry entry = {};
        entry.due = due;
        std::memcpy(&entry.buffer, &event, sizeof(event));
        Insert(entry);
    }

    // False when nothing is due. After an overflow the first event tells how many were lost.
    bool Pop(XrTime now, XrEventDataBuffer& buffer);

    // When the first is shown; 0 if none waits.
    XrTime NextDue() const { return entries_.empty() ? 0 : entries_.front().due; }

    // Forgets the events for which `unwanted(buffer)` is true.
    template <class Predicate>
    void DropIf(Predicate unwanted) {
        std::erase_if(entries_, [&](const Entry& entry) { return unwanted(entry.buffer); });
    }

 private:
    struct Entry {
        XrTime due;
        XrEventDataBuffer buffer;
    };

    void Insert(const Entry& entry);

    std::deque<Entry> entries_;
    std::uint32_t lost_ = 0;
};

XRAPI_ATTR XrResult XRAPI_CALL PollEvent(XrInstance instance, XrEventDataBuffer* buffer);

}  // namespace simulator
