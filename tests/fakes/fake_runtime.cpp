#include "tests/fakes/fake_runtime.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>

#include "layer/dispatch/dispatch.h"
#include "tests/fakes/fake_runtime_state.h"

namespace orvanic_xr {
namespace {

constexpr auto kGateLimit = std::chrono::seconds(10);

}  // namespace

bool Gate::wait_for_caller() {
    return state_->entered.get_future().wait_for(kGateLimit) == std::future_status::ready;
}

void Gate::open() {
    if (!std::exchange(is_open_, true)) state_->open.set_value();
}

FakeRuntime::FakeRuntime(Installed installed)
    : extensions{"XR_EXT_local_floor", "XR_KESTX1_simulator_compositor_output_capture", "XR_EXT_conformance_automation",
                 "XR_KEST_pronto_controller_plus"},
      system{XR_TYPE_SYSTEM_PROPERTIES, nullptr, 0, 4660, "Fake headset", {2048, 4096, 16}, {XR_TRUE, XR_TRUE}},
      state_(std::make_unique<State>(*this)) {
    the_fake_state = state_.get();
    if (installed == Installed::kYes) install();
}

FakeRuntime::~FakeRuntime() {
    uninstall();
    the_fake_state = nullptr;
}

void FakeRuntime::install() {
    if (instance() == XR_NULL_HANDLE) state_->instance = state_->make_handle<XrInstance>(0x1000, "instance");
    const std::vector<std::string> lookups_before = take_lookups();
    auto table = std::make_unique<NextDispatchTable>();
    PopulateDispatchTable(*table, state_->instance, FakeGetInstanceProcAddr);
    DispatchHolder::instance().Replace(std::move(table), state_->instance, FakeGetInstanceProcAddr);
    std::lock_guard lock(state_->mutex);
    state_->lookups = lookups_before;
}

void FakeRuntime::uninstall() {
    DispatchHolder::instance().Replace(nullptr, XR_NULL_HANDLE, nullptr);
}

XrInstance FakeRuntime::instance() const {
    return state_->instance;
}

PFN_xrGetInstanceProcAddr FakeRuntime::next_get_instance_proc_addr() {
    return FakeGetInstanceProcAddr;
}

void FakeRuntime::answer(const std::string& name, XrResult result) {
    state_->tell(name, [&](Script& script) { script.always.result = result; });
}

void FakeRuntime::answer_call(const std::string& name, int nth, XrResult result) {
    state_->tell(name, [&](Script& script) { script.nth_from_now(nth).result = result; });
}

void FakeRuntime::throw_from(const std::string& name) {
    state_->tell(name, [](Script& script) { script.always.throws = true; });
}

void FakeRuntime::throw_from_call(const std::string& name, int nth) {
    state_->tell(name, [&](Script& script) { script.nth_from_now(nth).throws = true; });
}

void FakeRuntime::lack(const std::string& name) {
    set_lacking(name, true);
}

void FakeRuntime::offer(const std::string& name) {
    set_lacking(name, false);
}

void FakeRuntime::offer_spatial_entities() {
    {
        std::lock_guard lock(state_->mutex);
        state_->set_spatial_entities_lacking(false);
    }
    if (DispatchHolder::instance().has_table()) install();
}

void FakeRuntime::set_lacking(const std::string& name, bool lacking) {
    state_->tell(name, [&](Script& script) { script.lacking = lacking; });
    if (DispatchHolder::instance().has_table()) install();
}

Gate FakeRuntime::block_call(const std::string& name, int nth) {
    Gate gate;
    state_->tell(name, [&](Script& script) {
        script.nth_from_now(nth).pass_gate = [shared = gate.state_] {
            shared->entered.set_value();
            shared->open.get_future().wait_for(kGateLimit);
        };
    });
    return gate;
}

void FakeRuntime::behave(const std::string& name) {
    state_->tell(name, [](Script& script) {
        script.body.reset();
        script.always = {};
        script.by_call.clear();
    });
}

void FakeRuntime::set_body(const std::string& name, std::any body) {
    state_->tell(name, [&](Script& script) {
        if (body.type() != script.usual.type()) {
            throw std::logic_error("the body for " + name + " has another signature");
        }
        script.body = std::move(body);
    });
}

std::vector<std::string> FakeRuntime::take_calls() {
    std::lock_guard lock(state_->mutex);
    return std::exchange(state_->log, {});
}

std::vector<std::string> FakeRuntime::calls() const {
    std::lock_guard lock(state_->mutex);
    return state_->log;
}

std::vector<std::string> FakeRuntime::calls(const std::string& name) const {
    std::vector<std::string> found = calls();
    std::erase_if(found, [&](const std::string& call) { return !call.starts_with(name + "("); });
    return found;
}

std::vector<std::string> FakeRuntime::take_lookups() {
    std::lock_guard lock(state_->mutex);
    return std::exchange(state_->lookups, {});
}

std::vector<std::string> FakeRuntime::live_handles() const {
    std::lock_guard lock(state_->mutex);
    std::vector<std::string> found;
    for (const std::uint64_t handle : state_->live) found.push_back(state_->names.handle(handle));
    return found;
}

std::string FakeRuntime::name_of(std::uint64_t handle) const {
    std::lock_guard lock(state_->mutex);
    return state_->names.handle(handle);
}

XrPath FakeRuntime::path(const std::string& text) {
    return state_->path_of(text);
}

std::string FakeRuntime::text(XrPath path) const {
    std::lock_guard lock(state_->mutex);
    return state_->names.path(path);
}

void FakeRuntime::push_event(const XrEventDataBuffer& event) {
    std::lock_guard lock(state_->mutex);
    state_->events.push_back(event);
}

void FakeRuntime::push_session_state(XrSession session, XrSessionState state) {
    const XrEventDataSessionStateChanged changed{XR_TYPE_EVENT_DATA_SESSION_STATE_CHANGED, nullptr, session, state, 0};
    XrEventDataBuffer event{};
    std::memcpy(&event, &changed, sizeof changed);
    push_event(event);
}

void FakeRuntime::place(const std::string& space_name, const XrPosef& pose, XrSpaceLocationFlags flags) {
    std::lock_guard lock(state_->mutex);
    state_->places[space_name] = {pose, flags};
}

}  // namespace orvanic_xr
