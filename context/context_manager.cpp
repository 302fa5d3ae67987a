#include "context/context_manager.h"

#include <utility>

#include "context/session_context.h"
#include "diagnostics/clock.h"
#include "diagnostics/logger.h"
#include "diagnostics/number_text.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

// Layers that an application usually submits: a copy of a frame then needs no memory under the lock.
constexpr std::size_t kUsualLayerCount = 4;

}  // namespace

ContextManager& ContextManager::instance() {
    // Never destroyed: tools may still read while static destructors run.
    static ContextManager& manager = *new ContextManager;
    return manager;
}

ContextManager::ContextManager()
    : instance_state_(std::make_unique<InstanceState>()),
      session_state_(std::make_unique<SessionState>()),
      frame_state_(std::make_unique<FrameState>()),
      system_state_(std::make_unique<SystemState>()) {}

ContextManager::~ContextManager() = default;

InstanceState ContextManager::getInstanceState() const {
    std::lock_guard lock(instance_mutex_);
    return *instance_state_;
}

void ContextManager::setInstanceState(const InstanceState& state) {
    std::lock_guard lock(instance_mutex_);
    *instance_state_ = state;
}

void ContextManager::setToolRegistry(IToolRegistry* registry) {
    InstanceState state = getInstanceState();
    state.toolRegistry = registry;
    setInstanceState(state);
}

XrInstance ContextManager::getInstanceHandle() const {
    std::lock_guard lock(instance_mutex_);
    return instance_state_->instance;
}

bool ContextManager::isExtensionEnabled(const std::string& name) const {
    std::lock_guard lock(instance_mutex_);
    return instance_state_->enabledExtensions.contains(name);
}

SessionState ContextManager::getSessionState() const {
    std::lock_guard lock(session_mutex_);
    return *session_state_;
}

std::vector<SessionStateHistoryEntry> ContextManager::getSessionHistory() const {
    std::lock_guard lock(session_mutex_);
    std::vector<SessionStateHistoryEntry> history;
    history.reserve(session_history_.size());
    for (std::size_t i = 0; i < session_history_.size(); ++i) history.push_back(session_history_[i]);
    return history;
}

void ContextManager::updateSessionState(const SessionState& state) {
    SessionState before;
    SessionState after;
    {
        std::lock_guard lock(session_mutex_);
        before = *session_state_;
        updateSessionStateLocked(state);
        after = *session_state_;
    }
    if (after.generation == before.generation) return;
    LogInfo("Session restarted: old=", HexText(before.valid ? HandleValue(before.session) : 0),
            " new=", HexText(HandleValue(after.session)), " generation=", after.generation);
}

bool ContextManager::updateSessionIfCurrent(XrSession session, std::optional<XrSessionState> state,
                                            std::int64_t now_ns) {
    std::lock_guard lock(session_mutex_);
    if (!session_state_->valid || session_state_->session != session) return false;
    SessionState updated = *session_state_;
    updated.state = state.value_or(updated.state);
    updated.timestamp = now_ns;
    updateSessionStateLocked(updated);
    return true;
}

void ContextManager::updateSessionStateLocked(const SessionState& state) {
    SessionState& current = *session_state_;
    const bool restarted = state.valid && (!current.valid || current.session != state.session);
    PushBounded(session_history_, {state.session, state.state, state.timestamp}, kSessionHistoryLimit);
    current.valid = state.valid;
    current.session = state.session;
    current.state = state.state;
    current.timestamp = state.timestamp;
    if (!restarted) return;
    ++current.generation;
    current.generationStartTime = SystemNanoseconds();
}

void ContextManager::forgetSessions() {
    scene_contexts_.Clear();
    session_contexts_.Clear();
    std::lock_guard lock(session_mutex_);
    if (!session_state_->valid) return;
    SessionState none;
    none.timestamp = SystemNanoseconds();
    updateSessionStateLocked(none);
}

void ContextManager::createSessionContext(XrSession session) {
    // On purpose made inside the lock, runtime calls and all: whoever asks meanwhile waits for the whole context.
    session_contexts_.Create(session, [session] { return std::make_shared<SessionContext>(session); });
}

void ContextManager::closeSession(XrSession session) {
    if (const auto context = session_contexts_.Find(session)) context->Close();
}

void ContextManager::closeSessions(XrInstance instance) {
    for (const auto& context : session_contexts_.All()) {
        if (context->instance() == instance) context->Close();
    }
}

void ContextManager::removeSessionContext(XrSession session) {
    if (const auto context = session_contexts_.Remove(session)) context->End();
}

std::shared_ptr<SessionContext> ContextManager::getSessionContext(XrSession session) const {
    std::shared_ptr<SessionContext> context = session_contexts_.Find(session);
    if (context) return context;
    LogError("Session context not found for session %p", session);
    return std::make_shared<SessionContext>(XR_NULL_HANDLE);
}

void ContextManager::setSceneContextFactory(SceneContextFactory factory) {
    scene_context_factory_ = factory;
}

void ContextManager::createSceneContext(XrSession session) {
    const SceneContextFactory factory = scene_context_factory_;
    if (!factory) return;
    std::shared_ptr<SceneContext> scene = factory(session);
    scene_contexts_.Create(session, [&] { return std::move(scene); });
}

void ContextManager::removeSceneContext(XrSession session) {
    scene_contexts_.Remove(session);
}

std::shared_ptr<SceneContext> ContextManager::getSceneContext(XrSession session) const {
    std::shared_ptr<SceneContext> context = scene_contexts_.Find(session);
    if (context) return context;
    LogError("Scene context not found for session %p", session);
    const SceneContextFactory factory = scene_context_factory_;
    return factory ? factory(XR_NULL_HANDLE) : nullptr;
}

void ContextManager::setSystemState(const SystemState& state) {
    std::lock_guard lock(system_mutex_);
    *system_state_ = state;
}

SystemState ContextManager::getSystemState() const {
    std::lock_guard lock(system_mutex_);
    return *system_state_;
}

FrameState ContextManager::getFrameState() const {
    FrameState state;
    state.layers.reserve(kUsualLayerCount);
    std::lock_guard lock(frame_mutex_);
    state = *frame_state_;
    return state;
}

std::vector<FrameHistoryEntry> ContextManager::getFrameHistory() const {
    std::vector<FrameHistoryEntry> history(kFrameHistoryLimit);
    for (FrameHistoryEntry& entry : history) entry.layers.reserve(kUsualLayerCount);
    {
        std::lock_guard lock(frame_mutex_);
        history.resize(frame_history_.size());
        for (std::size_t i = 0; i < history.size(); ++i) history[i] = frame_history_[i];
    }
    return history;
}

std::optional<XrDuration> ContextManager::lastFramePeriod() const {
    std::lock_guard lock(frame_mutex_);
    if (!frame_state_->valid) return std::nullopt;
    return frame_state_->predictedDisplayPeriod;
}

void ContextManager::updateFrameState(FrameState state) {
    std::lock_guard lock(frame_mutex_);
    if (state.valid) PushBounded<FrameHistoryEntry>(frame_history_, state, kFrameHistoryLimit);
    std::swap(*frame_state_, state);  // the old one goes after the lock
}

}  // namespace orvanic_xr
