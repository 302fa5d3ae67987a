// Contexts by session, shared with whoever works with one.
#pragma once

#include <openxr/openxr.h>

#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace orvanic_xr {

// Any thread. The mutex is never held while a context is destroyed.
template <typename Context>
class SessionMap {
 public:
    // Null if the session is unknown.
    std::shared_ptr<Context> Find(XrSession session) const {
        std::lock_guard lock(mutex_);
        const auto found = contexts_.find(session);
        return found != contexts_.end() ? found->second : nullptr;
    }

    // Adds what `make` gives, called with the mutex held. An entry that exists stays, and the new context goes.
    template <typename Make>
    void Create(XrSession session, const Make& make) {
        std::shared_ptr<Context> made;
        std::lock_guard lock(mutex_);
        made = make();
        contexts_.try_emplace(session, made);
    }

    // What was removed, or null.
    std::shared_ptr<Context> Remove(XrSession session) {
        std::lock_guard lock(mutex_);
        auto removed = contexts_.extract(session);
        return removed ? std::move(removed.mapped()) : nullptr;
    }

    std::vector<std::shared_ptr<Context>> All() const {
        std::vector<std::shared_ptr<Context>> all;
        std::lock_guard lock(mutex_);
        for (const auto& [session, context] : contexts_) all.push_back(context);
        return all;
    }

    void Clear() {
        Map removed;
        std::lock_guard lock(mutex_);
        removed.swap(contexts_);
    }

 private:
    using Map = std::map<XrSession, std::shared_ptr<Context>>;

    // Guards contexts_. Ordered by the handle's value.
    mutable std::mutex mutex_;
    Map contexts_;
};

}  // namespace orvanic_xr
