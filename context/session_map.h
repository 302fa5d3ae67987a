// Contexts by session, shared with whoever works with one.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "layer/dispatch/dispatch.h"

namespace orvanic_xr {

// Any thread. The mutex is never held while a context is destroyed.
template <typename Context>
class SessionMap {
 public:
    // Null if the session is unknown.
    std::shared_ptr<Context> Find(XrSession session) const {
        std::lock_guard lock(mutex_);
        const auto found = entries_.find(session);
        return found != entries_.end() ? found->second.context : nullptr;
    }

    // Adds what `make` gives, called with the mutex held. An entry that exists stays and the new context goes;
    // but one that is left of an instance which ended without xrDestroySession only shares the handle's number.
    template <typename Make>
    void Create(XrSession session, const Make& make) {
        const std::uint64_t runtime = DispatchHolder::instance().runtime_number();
        Entry made;
        std::lock_guard lock(mutex_);
        made = {make(), runtime};
        const auto [entry, added] = entries_.try_emplace(session, made);
        if (!added && entry->second.runtime != runtime) std::swap(entry->second, made);
    }

    void Remove(XrSession session) {
        typename std::map<XrSession, Entry>::node_type removed;
        std::lock_guard lock(mutex_);
        removed = entries_.extract(session);
    }

 private:
    struct Entry {
        std::shared_ptr<Context> context;
        std::uint64_t runtime = 0;  // DispatchHolder's number of the runtime that it was made in
    };

    // Guards entries_. Ordered by the handle's value.
    mutable std::mutex mutex_;
    std::map<XrSession, Entry> entries_;
};

}  // namespace orvanic_xr
