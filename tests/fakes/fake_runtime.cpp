#include "tests/fakes/fake_runtime.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>

#include "layer/dispatch/dispatch.h"
#include "tests/fakes/call_text.h"

namespace orvanic_xr {
namespace {

constexpr auto kGateLimit = std::chrono::seconds(10);
constexpr XrPath kFirstPath = 0x7001;  // apart from system and request ids

using PFN_xrStartCapture = XrResult(XRAPI_PTR*)(XrSession, std::uint32_t);
using PFN_xrStopCapture = XrResult(XRAPI_PTR*)(XrSession);
using PFN_xrCaptureOutput = XrResult(XRAPI_PTR*)(XrSession, void*);

// Functions beyond the table's: asked for at instance creation, or looked up by name.
#define VELMOOR_FAKE_EXTRAS(ROW)                                                          \
    ROW(CreateApiLayerInstance, PFN_xrCreateApiLayerInstance)                             \
    ROW(EnumerateInstanceExtensionProperties, PFN_xrEnumerateInstanceExtensionProperties) \
    ROW(SetInputDeviceActiveEXT, PFN_xrSetInputDeviceActiveEXT)                           \
    ROW(SetInputDeviceStateBoolEXT, PFN_xrSetInputDeviceStateBoolEXT)                     \
    ROW(SetInputDeviceStateFloatEXT, PFN_xrSetInputDeviceStateFloatEXT)                   \
    ROW(SetInputDeviceStateVector2fEXT, PFN_xrSetInputDeviceStateVector2fEXT)             \
    ROW(SetInputDeviceLocationEXT, PFN_xrSetInputDeviceLocationEXT)                       \
    ROW(StartSimulatorCompositorOutputCaptureKESTX1, PFN_xrStartCapture)                  \
    ROW(StopSimulatorCompositorOutputCaptureKESTX1, PFN_xrStopCapture)                    \
    ROW(CaptureSimulatorCompositorOutputKESTX1, PFN_xrCaptureOutput)

enum class Function {
#define VELMOOR_NEXT_CALLED(Name) Name,
#define VELMOOR_NEXT_TABLED(Name)
#include "layer/dispatch/dispatch_functions.inc"
#undef VELMOOR_NEXT_CALLED
#undef VELMOOR_NEXT_TABLED
#define ROW(Name, Type) Name,
    VELMOOR_FAKE_EXTRAS(ROW)
#undef ROW
};

// Always the newest fake: the functions below are plain pointers that know no object.
std::atomic<FakeRuntime::State*> the_state = nullptr;

}  // namespace

struct Gate::State {
    std::mutex mutex;
    std::condition_variable changed;
    bool entered = false;
    bool open = false;
};

Gate::Gate() : state_(std::make_shared<State>()) {}

Gate::~Gate() {
    open();
}

bool Gate::wait_for_caller() {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, kGateLimit, [&] { return state_->entered; });
}

void Gate::open() {
    std::lock_guard lock(state_->mutex);
    state_->open = true;
    state_->changed.notify_all();
}

// What a test said about one function.
struct Script {
    std::any usual;  // std::function of the function's signature
    PFN_xrVoidFunction entry = nullptr;
    std::any body;
    std::optional<XrResult> result;
    std::map<int, XrResult> results_by_call;  // by the number of the call
    std::map<int, bool> throws_by_call;
    bool throws = false;
    bool lacking = false;
    std::function<void()> pass_gate;
    int calls = 0;
};

// What one call does, settled under the mutex and carried out without it.
struct Plan {
    std::any body;
    std::optional<XrResult> result;
    bool throws = false;
    std::function<void()> pass_gate;
};

struct FakeRuntime::State {
    explicit State(FakeRuntime& owner) : settings(owner) { add_usual_answers(); }

    void add_usual_answers();
    template <Function kFunction, typename Pfn, typename Usual>
    void add(const char* name, Usual usual);

    template <typename... Args>
    XrResult perform(const char* name, Args... args);

    Script& script(const std::string& name) {
        const auto found = scripts.find(name);
        if (found == scripts.end()) throw std::logic_error("FakeRuntime knows no " + name);
        return found->second;
    }

    template <typename Handle>
    Handle make_handle(std::uint64_t base, std::string name) {
        std::lock_guard lock(mutex);
        const int twin = ++name_counts[name];
        if (name == "instance" || name == "session") {
            name += std::to_string(twin);
        } else if (twin > 1) {
            name += "#" + std::to_string(twin);
        }
        const std::uint64_t value = base + ++handle_counts[base];
        names.handles[value] = name;
        live.push_back(value);
        return HandleFromValue<Handle>(value);
    }
    template <typename Handle>
    XrResult destroy(Handle handle) {
        std::lock_guard lock(mutex);
        std::erase(live, HandleValue(handle));
        return XR_SUCCESS;
    }
    XrPath path_of(const std::string& text) {
        std::lock_guard lock(mutex);
        for (const auto& [path, known] : names.paths) {
            if (known == text) return path;
        }
        const XrPath path = kFirstPath + names.paths.size();
        names.paths[path] = text;
        return path;
    }
    template <typename Handle>
    std::string name_of(Handle handle) {
        std::lock_guard lock(mutex);
        return names.handle(HandleValue(handle));
    }

    FakeRuntime& settings;

    // Guards everything below.
    std::mutex mutex;
    std::map<std::string, Script> scripts;
    std::vector<std::string> log;
    std::vector<std::string> lookups;
    CallNames names;
    std::map<std::uint64_t, std::uint64_t> handle_counts;
    std::map<std::string, int> name_counts;
    std::vector<std::uint64_t> live;
    std::deque<XrEventDataBuffer> events;
    std::map<std::string, std::pair<XrPosef, XrSpaceLocationFlags>> places;
    XrInstance instance = XR_NULL_HANDLE;
    std::int64_t frames = 0;
    XrAsyncRequestIdKS requests = 0;
};

namespace {

template <Function kFunction, typename Pfn>
struct Entry;

template <Function kFunction, typename... Args>
struct Entry<kFunction, XrResult(XRAPI_PTR*)(Args...)> {
    using Body = std::function<XrResult(Args...)>;
    static inline const char* name = nullptr;

    static XrResult XRAPI_CALL Call(Args... args) {
        FakeRuntime::State* state = the_state.load();
        if (!state) throw std::logic_error("a function of FakeRuntime was called after its end");
        return state->perform<Args...>(name, args...);
    }
};

std::string SpaceName(FakeRuntime::State& state, const XrReferenceSpaceCreateInfo* info) {
    CallText text(state.names);
    text.add(info);
    return text.text();
}

std::string SpaceName(FakeRuntime::State& state, const XrActionSpaceCreateInfo* info) {
    std::lock_guard lock(state.mutex);
    std::string name = "space(" + state.names.handle(HandleValue(info->action));
    if (info->subactionPath != XR_NULL_PATH) name += ", " + state.names.path(info->subactionPath);
    return name + ")";
}

// The two-call idiom over `items`, each written by `write`.
template <typename Item, typename Target, typename Write>
XrResult TwoCalls(const std::vector<Item>& items, std::uint32_t capacity, std::uint32_t* count, Target* target,
                  Write write) {
    if (count) *count = static_cast<std::uint32_t>(items.size());
    if (capacity == 0) return XR_SUCCESS;
    if (capacity < items.size()) return XR_ERROR_SIZE_INSUFFICIENT;
    for (std::size_t i = 0; i < items.size(); ++i) write(items[i], target[i]);
    return XR_SUCCESS;
}

XRAPI_ATTR XrResult XRAPI_CALL GetInstanceProcAddr(XrInstance, const char* name, PFN_xrVoidFunction* function) {
    *function = nullptr;
    FakeRuntime::State* state = the_state.load();
    if (!state) return XR_ERROR_HANDLE_INVALID;
    std::lock_guard lock(state->mutex);
    state->lookups.emplace_back(name);
    if (std::strcmp(name, "xrGetInstanceProcAddr") == 0) {
        *function = reinterpret_cast<PFN_xrVoidFunction>(GetInstanceProcAddr);
        return XR_SUCCESS;
    }
    const auto found = state->scripts.find(name);
    if (found == state->scripts.end() || found->second.lacking) return XR_ERROR_FUNCTION_UNSUPPORTED;
    *function = found->second.entry;
    return XR_SUCCESS;
}

constexpr const char* kSpatialEntityFunctions[] = {
    "xrEnumerateSpaceSupportedComponentsKS",
    "xrSetSpaceComponentStatusKS",
    "xrGetSpaceComponentStatusKS",
    "xrQuerySpacesKS",
    "xrRetrieveSpaceQueryResultsKS",
    "xrGetSpaceBoundingBox2DKS",
    "xrGetSpaceBoundingBox3DKS",
    "xrGetSpaceSemanticLabelsKS",
    "xrGetSpaceContainerKS",
};

}  // namespace

template <Function kFunction, typename Pfn, typename Usual>
void FakeRuntime::State::add(const char* name, Usual usual) {
    using Row = Entry<kFunction, Pfn>;
    Row::name = name;
    Script& script = scripts[name];
    script.entry = reinterpret_cast<PFN_xrVoidFunction>(&Row::Call);
    script.usual = typename Row::Body(std::move(usual));
}

template <typename... Args>
XrResult FakeRuntime::State::perform(const char* name, Args... args) {
    Plan plan;
    {
        std::lock_guard lock(mutex);
        CallText text(names);
        (text.add(args), ...);
        log.push_back(std::string(name) + "(" + text.text() + ")");
        Script& said = script(name);
        const int number = ++said.calls;
        plan = {said.body.has_value() ? said.body : said.usual, said.result, said.throws, said.pass_gate};
        if (const auto nth = said.results_by_call.find(number); nth != said.results_by_call.end()) {
            plan.result = nth->second;
        }
        plan.throws |= said.throws_by_call.contains(number);
    }
    if (plan.pass_gate) plan.pass_gate();
    if (plan.throws) throw std::runtime_error(std::string(name) + " throws");
    if (plan.result && XR_FAILED(*plan.result)) return *plan.result;
    const XrResult result = std::any_cast<const std::function<XrResult(Args...)>&>(plan.body)(args...);
    return plan.result && XR_SUCCEEDED(result) ? *plan.result : result;
}

void FakeRuntime::State::add_usual_answers() {
    const auto success = [](auto&&...) { return XR_SUCCESS; };
#define VELMOOR_NEXT_CALLED(Name) add<Function::Name, PFN_xr##Name>("xr" #Name, success);
#define VELMOOR_NEXT_TABLED(Name)
#include "layer/dispatch/dispatch_functions.inc"
#undef VELMOOR_NEXT_CALLED
#undef VELMOOR_NEXT_TABLED
#define ROW(Name, Type) add<Function::Name, Type>("xr" #Name, success);
    VELMOOR_FAKE_EXTRAS(ROW)
#undef ROW
    for (const char* name : kSpatialEntityFunctions) scripts[name].lacking = true;

#define USUALLY(Name, ...) add<Function::Name, PFN_xr##Name>("xr" #Name, __VA_ARGS__)
    USUALLY(CreateApiLayerInstance, [this](const XrInstanceCreateInfo*, const XrApiLayerCreateInfo*, XrInstance* out) {
        *out = make_handle<XrInstance>(0x1000, "instance");
        return XR_SUCCESS;
    });
    USUALLY(DestroyInstance, [this](XrInstance handle) { return destroy(handle); });
    USUALLY(EnumerateInstanceExtensionProperties,
            [this](const char*, std::uint32_t capacity, std::uint32_t* count, XrExtensionProperties* properties) {
                return TwoCalls(settings.extensions, capacity, count, properties,
                                [](const std::string& name, XrExtensionProperties& to) {
                                    name.copy(to.extensionName, sizeof to.extensionName - 1);
                                });
            });
    USUALLY(CreateSession, [this](XrInstance, const XrSessionCreateInfo*, XrSession* out) {
        *out = make_handle<XrSession>(0x2000, "session");
        return XR_SUCCESS;
    });
    USUALLY(DestroySession, [this](XrSession handle) { return destroy(handle); });
    USUALLY(GetSystemProperties, [this](XrInstance, XrSystemId id, XrSystemProperties* out) {
        void* const next = out->next;
        *out = settings.system;
        out->next = next;
        out->systemId = id;
        return XR_SUCCESS;
    });
    USUALLY(CreateReferenceSpace, [this](XrSession, const XrReferenceSpaceCreateInfo* info, XrSpace* out) {
        *out = make_handle<XrSpace>(0x3000, SpaceName(*this, info));
        return XR_SUCCESS;
    });
    USUALLY(CreateActionSpace, [this](XrSession, const XrActionSpaceCreateInfo* info, XrSpace* out) {
        *out = make_handle<XrSpace>(0x3000, SpaceName(*this, info));
        return XR_SUCCESS;
    });
    USUALLY(DestroySpace, [this](XrSpace handle) { return destroy(handle); });
    USUALLY(LocateSpace, [this](XrSpace space, XrSpace, XrTime, XrSpaceLocation* out) {
        std::lock_guard lock(mutex);
        const auto found = places.find(names.handle(HandleValue(space)));
        const bool placed = found != places.end();
        out->pose = placed ? found->second.first : XrPosef{{0, 0, 0, 1}, {0, 0, 0}};
        out->locationFlags = placed ? found->second.second : 0xF;
        return XR_SUCCESS;
    });
    USUALLY(CreateActionSet, [this](XrInstance, const XrActionSetCreateInfo* info, XrActionSet* out) {
        *out = make_handle<XrActionSet>(0x4000, info->actionSetName);
        return XR_SUCCESS;
    });
    USUALLY(DestroyActionSet, [this](XrActionSet handle) { return destroy(handle); });
    USUALLY(CreateAction, [this](XrActionSet, const XrActionCreateInfo* info, XrAction* out) {
        *out = make_handle<XrAction>(0x5000, info->actionName);
        return XR_SUCCESS;
    });
    USUALLY(DestroyAction, [this](XrAction handle) { return destroy(handle); });
    USUALLY(StringToPath, [this](XrInstance, const char* text, XrPath* out) {
        *out = path_of(text);
        return XR_SUCCESS;
    });
    USUALLY(PathToString, [this](XrInstance, XrPath path, std::uint32_t capacity, std::uint32_t* count, char* buffer) {
        std::lock_guard lock(mutex);
        const auto known = names.paths.find(path);
        if (known == names.paths.end()) return XR_ERROR_PATH_INVALID;
        const char* const text = known->second.c_str();
        return TwoCalls(std::vector<char>(text, text + known->second.size() + 1), capacity, count, buffer,
                        [](char from, char& to) { to = from; });
    });
    USUALLY(WaitFrame, [this](XrSession, const XrFrameWaitInfo*, XrFrameState* out) {
        std::lock_guard lock(mutex);
        const XrTime time = settings.first_display_time + settings.display_period * frames++;
        if (!out) return XR_SUCCESS;
        out->predictedDisplayTime = time;
        out->predictedDisplayPeriod = settings.display_period;
        out->shouldRender = settings.should_render;
        return XR_SUCCESS;
    });
    USUALLY(PollEvent, [this](XrInstance, XrEventDataBuffer* out) {
        std::lock_guard lock(mutex);
        if (events.empty()) return XR_EVENT_UNAVAILABLE;
        if (out) *out = events.front();
        events.pop_front();
        return XR_SUCCESS;
    });
    USUALLY(QuerySpacesKS, [this](XrSession, const XrSpaceQueryInfoBaseHeaderKS*, XrAsyncRequestIdKS* out) {
        std::lock_guard lock(mutex);
        *out = ++requests;
        return XR_SUCCESS;
    });
    USUALLY(SetSpaceComponentStatusKS,
            [this](XrSpace, const XrSpaceComponentStatusSetInfoKS*, XrAsyncRequestIdKS* out) {
                std::lock_guard lock(mutex);
                *out = ++requests;
                return XR_SUCCESS;
            });
#undef USUALLY
}

FakeRuntime::FakeRuntime(Installed installed)
    : extensions{"XR_EXT_local_floor", "XR_KESTX1_simulator_compositor_output_capture", "XR_EXT_conformance_automation",
                 "XR_KEST_pronto_controller_plus"},
      system{XR_TYPE_SYSTEM_PROPERTIES, nullptr, 0, 4660, "Fake headset", {2048, 4096, 16}, {XR_TRUE, XR_TRUE}},
      state_(std::make_unique<State>(*this)) {
    the_state = state_.get();
    if (installed == Installed::kYes) install();
}

FakeRuntime::~FakeRuntime() {
    uninstall();
    the_state = nullptr;
}

void FakeRuntime::install() {
    if (instance() == XR_NULL_HANDLE) state_->instance = state_->make_handle<XrInstance>(0x1000, "instance");
    const std::vector<std::string> lookups_before = take_lookups();
    auto table = std::make_unique<NextDispatchTable>();
    PopulateDispatchTable(*table, state_->instance, GetInstanceProcAddr);
    DispatchHolder::instance().Replace(std::move(table), state_->instance, GetInstanceProcAddr);
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
    return GetInstanceProcAddr;
}

PFN_xrCreateApiLayerInstance FakeRuntime::next_create_api_layer_instance() {
    return Entry<Function::CreateApiLayerInstance, PFN_xrCreateApiLayerInstance>::Call;
}

void FakeRuntime::answer(const std::string& name, XrResult result) {
    std::lock_guard lock(state_->mutex);
    state_->script(name).result = result;
}

void FakeRuntime::answer_call(const std::string& name, int nth, XrResult result) {
    std::lock_guard lock(state_->mutex);
    Script& script = state_->script(name);
    script.results_by_call[script.calls + nth] = result;
}

void FakeRuntime::throw_from(const std::string& name) {
    std::lock_guard lock(state_->mutex);
    state_->script(name).throws = true;
}

void FakeRuntime::throw_from_call(const std::string& name, int nth) {
    std::lock_guard lock(state_->mutex);
    Script& script = state_->script(name);
    script.throws_by_call[script.calls + nth] = true;
}

void FakeRuntime::lack(const std::string& name) {
    {
        std::lock_guard lock(state_->mutex);
        state_->script(name).lacking = true;
    }
    if (DispatchHolder::instance().has_table()) install();
}

void FakeRuntime::offer(const std::string& name) {
    {
        std::lock_guard lock(state_->mutex);
        state_->script(name).lacking = false;
    }
    if (DispatchHolder::instance().has_table()) install();
}

void FakeRuntime::offer_spatial_entities() {
    for (const char* name : kSpatialEntityFunctions) offer(name);
}

Gate FakeRuntime::block(const std::string& name) {
    Gate gate;
    std::lock_guard lock(state_->mutex);
    state_->script(name).pass_gate = [shared = gate.state_] {
        std::unique_lock gate_lock(shared->mutex);
        shared->entered = true;
        shared->changed.notify_all();
        shared->changed.wait_for(gate_lock, kGateLimit, [&] { return shared->open; });
    };
    return gate;
}

void FakeRuntime::behave(const std::string& name) {
    std::lock_guard lock(state_->mutex);
    Script& script = state_->script(name);
    script.body.reset();
    script.result.reset();
    script.results_by_call.clear();
    script.throws_by_call.clear();
    script.throws = false;
    script.pass_gate = nullptr;
}

void FakeRuntime::set_body(const std::string& name, std::any body) {
    std::lock_guard lock(state_->mutex);
    Script& script = state_->script(name);
    if (body.type() != script.usual.type()) throw std::logic_error("the body for " + name + " has another signature");
    script.body = std::move(body);
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
