// Where the hooks leave what they learned and the tools read it. Hooks run on the application's threads and
// tools on the server's, so every record is handed over by value, under a lock of its own.
//
// Lock order across the layer: the pending frames' mutex, then one of the frame mutex, the session context mutex
// and SessionContext's frameTimeMutex; the last takes the frame mutex for a moment. No two guards of this class
// are held at once, except that createSessionContext holds the session context mutex while a context makes its
// spaces and actions, which takes the instance mutex and the dispatch mutex for a moment.
#pragma once

#include <openxr/openxr.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "context/records.h"
#include "context/ring_queue.h"
#include "context/session_map.h"

namespace orvanic_xr {

class SceneContext;
class SessionContext;

class ContextManager {
 public:
    static constexpr std::size_t kSessionHistoryLimit = 100;
    static constexpr std::size_t kFrameHistoryLimit = 30;

    static ContextManager& instance();

    ContextManager();
    ~ContextManager();
    ContextManager(const ContextManager&) = delete;
    ContextManager& operator=(const ContextManager&) = delete;

    InstanceState getInstanceState() const;
    void setInstanceState(const InstanceState& state);
    // A copy, a change of the one field and a store: not one step under the lock.
    void setToolRegistry(IToolRegistry* registry);
    // The handle alone, and one question to the enabled extensions, without copying the record.
    XrInstance getInstanceHandle() const;
    bool isExtensionEnabled(const std::string& name) const;

    SessionState getSessionState() const;
    std::vector<SessionStateHistoryEntry> getSessionHistory() const;  // oldest first
    // Takes valid, session, state and timestamp from `state` and keeps the generation: every session that
    // becomes current counts as a restart, the first one included.
    void updateSessionState(const SessionState& state);
    // The same for the current session, in one step: `session`, with the time now and with `state` unless that is
    // empty. False, and nothing changes, if another session or none is current.
    bool updateSessionIfCurrent(XrSession session, std::optional<XrSessionState> state, std::int64_t now_ns);

    // The instance is gone, and with it every session that the application did not destroy: none is current, none
    // has a context. The next instance's handles may have the same numbers.
    void forgetSessions();

    // Makes the context of `session`, inside the lock. An entry that exists stays.
    void createSessionContext(XrSession session);
    // The fence of a session, and of all sessions of an instance: returns when no tool calls the runtime with their
    // handles any more. For the hooks that destroy them, before they forward and before whatever tells tools of it.
    void closeSession(XrSession session);
    void closeSessions(XrInstance instance);
    // Ends the context too, for whoever still holds it.
    void removeSessionContext(XrSession session);
    // Never null: an unknown session gives an empty context, whose `session` is null.
    std::shared_ptr<SessionContext> getSessionContext(XrSession session) const;

    // The scene lives above this class, so how its context is made is handed in, before the first session.
    using SceneContextFactory = std::shared_ptr<SceneContext> (*)(XrSession session);
    void setSceneContextFactory(SceneContextFactory factory);
    void createSceneContext(XrSession session);
    void removeSceneContext(XrSession session);
    // As getSessionContext. Null only while no factory is set.
    std::shared_ptr<SceneContext> getSceneContext(XrSession session) const;

    void setSystemState(const SystemState& state);
    SystemState getSystemState() const;

    FrameState getFrameState() const;
    std::vector<FrameHistoryEntry> getFrameHistory() const;  // oldest first
    // Period of the last completed frame, if there is one: what the frame path needs, without the copy.
    std::optional<XrDuration> lastFramePeriod() const;
    void updateFrameState(FrameState state);

 private:
    void updateSessionStateLocked(const SessionState& state);

    // Guards instance_state_.
    mutable std::mutex instance_mutex_;
    std::unique_ptr<InstanceState> instance_state_;

    // Guards session_state_ and session_history_.
    mutable std::mutex session_mutex_;
    std::unique_ptr<SessionState> session_state_;
    RingQueue<SessionStateHistoryEntry> session_history_;

    // Each with a mutex of its own.
    SessionMap<SessionContext> session_contexts_;
    SessionMap<SceneContext> scene_contexts_;
    std::atomic<SceneContextFactory> scene_context_factory_ = nullptr;

    // Guards frame_state_ and frame_history_.
    mutable std::mutex frame_mutex_;
    std::unique_ptr<FrameState> frame_state_;
    RingQueue<FrameHistoryEntry> frame_history_;

    // Guards system_state_.
    mutable std::mutex system_mutex_;
    std::unique_ptr<SystemState> system_state_;
};

}  // namespace orvanic_xr
