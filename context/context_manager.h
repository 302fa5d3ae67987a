// Where the hooks leave what they learned and the tools read it. Hooks run on the application's threads and
// tools on the server's, so every record is handed over by value, under a lock of its own.
//
// Lock order across the layer: the pending frames' mutex, the frame mutex, the session context mutex,
// SessionContext's frameTimeMutex. No two guards of this class are held at once, except that
// createSessionContext holds the session context mutex while a context makes its spaces and actions, which
// takes the instance mutex and the dispatch mutex for a moment.
#pragma once

#include <openxr/openxr.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "context/records.h"

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

    // Makes the context of `session`, inside the lock. An entry that exists stays.
    void createSessionContext(XrSession session);
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
    // Period of the last completed frame, 0 if there is none: what the frame path needs, without the copy.
    XrDuration lastFramePeriod() const;
    void updateFrameState(FrameState state);

 private:
    // Guards instance_state_.
    mutable std::mutex instance_mutex_;
    std::unique_ptr<InstanceState> instance_state_;

    // Guards session_state_ and session_history_.
    mutable std::mutex session_mutex_;
    std::unique_ptr<SessionState> session_state_;
    std::deque<SessionStateHistoryEntry> session_history_;

    // Guards session_contexts_. Ordered by the handle's value.
    mutable std::mutex session_context_mutex_;
    std::map<XrSession, std::shared_ptr<SessionContext>> session_contexts_;

    // Guards scene_contexts_ and scene_context_factory_.
    mutable std::mutex scene_context_mutex_;
    std::map<XrSession, std::shared_ptr<SceneContext>> scene_contexts_;
    SceneContextFactory scene_context_factory_ = nullptr;

    // Guards frame_state_ and frame_history_.
    mutable std::mutex frame_mutex_;
    std::unique_ptr<FrameState> frame_state_;
    std::deque<FrameHistoryEntry> frame_history_;

    // Guards system_state_.
    mutable std::mutex system_mutex_;
    std::unique_ptr<SystemState> system_state_;
};

}  // namespace orvanic_xr
