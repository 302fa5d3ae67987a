#include <cstring>

#include "tests/fakes/fake_runtime_state.h"
#include "xr/simulator_capture_records.h"

namespace orvanic_xr {

// Functions beyond the table's: asked for at instance creation, or looked up by name.
#define VELMOOR_FAKE_EXTRAS(ROW)                                                                        \
    ROW(CreateApiLayerInstance, PFN_xrCreateApiLayerInstance)                                           \
    ROW(EnumerateInstanceExtensionProperties, PFN_xrEnumerateInstanceExtensionProperties)               \
    ROW(SetInputDeviceActiveEXT, PFN_xrSetInputDeviceActiveEXT)                                         \
    ROW(SetInputDeviceStateBoolEXT, PFN_xrSetInputDeviceStateBoolEXT)                                   \
    ROW(SetInputDeviceStateFloatEXT, PFN_xrSetInputDeviceStateFloatEXT)                                 \
    ROW(SetInputDeviceLocationEXT, PFN_xrSetInputDeviceLocationEXT)                                     \
    ROW(StartSimulatorCompositorOutputCaptureKESTX1, PFN_xrStartSimulatorCompositorOutputCaptureKESTX1) \
    ROW(StopSimulatorCompositorOutputCaptureKESTX1, PFN_xrStopSimulatorCompositorOutputCaptureKESTX1)   \
    ROW(CaptureSimulatorCompositorOutputKESTX1, PFN_xrCaptureSimulatorCompositorOutputKESTX1)

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

std::atomic<FakeRuntime::State*> the_fake_state = nullptr;

constexpr XrTime kFirstDisplayTime = 1'000'000'000;
constexpr XrDuration kDisplayPeriod = 10'000'000;
constexpr char kLookUp[] = "xrGetInstanceProcAddr";

namespace {

template <Function kFunction, typename Pfn>
struct Entry;

template <Function kFunction, typename... Args>
struct Entry<kFunction, XrResult(XRAPI_PTR*)(Args...)> {
    using Body = std::function<XrResult(Args...)>;
    static inline const char* name = nullptr;

    static XrResult XRAPI_CALL Call(Args... args) {
        FakeRuntime::State* state = the_fake_state.load();
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

}  // namespace

XRAPI_ATTR XrResult XRAPI_CALL FakeGetInstanceProcAddr(XrInstance, const char* name, PFN_xrVoidFunction* function) {
    *function = nullptr;
    FakeRuntime::State* state = the_fake_state.load();
    if (!state) return XR_ERROR_HANDLE_INVALID;
    Plan plan;
    {
        std::lock_guard lock(state->mutex);
        state->lookups.emplace_back(name);
        plan = FakeRuntime::State::plan_call(state->script(kLookUp));
    }
    if (const auto failure = FakeRuntime::State::carry_out(plan, kLookUp)) return *failure;
    std::lock_guard lock(state->mutex);
    const auto found = state->scripts.find(name);
    if (found == state->scripts.end() || found->second.lacking) return XR_ERROR_FUNCTION_UNSUPPORTED;
    *function = found->second.entry;
    return XR_SUCCESS;
}

Plan FakeRuntime::State::plan_call(Script& script) {
    Plan plan = {script.body.has_value() ? script.body : script.usual, script.always};
    if (const auto nth = script.by_call.find(++script.calls); nth != script.by_call.end()) {
        const auto& [result, throws, pass_gate] = nth->second;
        if (result) plan.behaviour.result = result;
        if (pass_gate) plan.behaviour.pass_gate = pass_gate;
        plan.behaviour.throws |= throws;
    }
    return plan;
}

std::optional<XrResult> FakeRuntime::State::carry_out(const Plan& plan, const char* name) {
    const auto& [result, throws, pass_gate] = plan.behaviour;
    if (pass_gate) pass_gate();
    if (throws) throw std::runtime_error(std::string(name) + " throws");
    return result && XR_FAILED(*result) ? result : std::nullopt;
}

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
        plan = plan_call(script(name));
    }
    if (const auto failure = carry_out(plan, name)) return *failure;
    const XrResult result = std::any_cast<const std::function<XrResult(Args...)>&>(plan.body)(args...);
    return XR_SUCCEEDED(result) ? plan.behaviour.result.value_or(result) : result;
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
    set_spatial_entities_lacking(true);
    scripts[kLookUp].entry = reinterpret_cast<PFN_xrVoidFunction>(FakeGetInstanceProcAddr);

#define USUALLY(Name, ...) add<Function::Name, PFN_xr##Name>("xr" #Name, __VA_ARGS__)
    USUALLY(CreateApiLayerInstance, [this](const XrInstanceCreateInfo*, const XrApiLayerCreateInfo*, XrInstance* out) {
        *out = make_handle<XrInstance>(0x1000, "instance");
        std::lock_guard lock(mutex);
        instance = *out;
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
    USUALLY(CreateAction, [this](XrActionSet set, const XrActionCreateInfo* info, XrAction* out) {
        *out = make_handle<XrAction>(0x5000, info->actionName);
        std::lock_guard lock(mutex);
        owners[HandleValue(*out)] = HandleValue(set);
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
        const XrTime time = kFirstDisplayTime + kDisplayPeriod * frames++;
        if (!out) return XR_SUCCESS;
        out->predictedDisplayTime = time;
        out->predictedDisplayPeriod = kDisplayPeriod;
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

PFN_xrCreateApiLayerInstance FakeRuntime::next_create_api_layer_instance() {
    return Entry<Function::CreateApiLayerInstance, PFN_xrCreateApiLayerInstance>::Call;
}

}  // namespace orvanic_xr
