// The inside of FakeRuntime: what it was told and what it has seen.
#pragma once

#include <any>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/fakes/call_text.h"
#include "tests/fakes/fake_runtime.h"

namespace orvanic_xr {

inline constexpr XrPath kFirstPath = 0x7001;  // apart from system and request ids

// Functions that the fake has, as an enumeration that only its own source fills.
enum class Function;

// Always the newest fake: its functions are plain pointers that know no object.
extern std::atomic<FakeRuntime::State*> the_fake_state;

XRAPI_ATTR XrResult XRAPI_CALL FakeGetInstanceProcAddr(XrInstance instance, const char* name,
                                                       PFN_xrVoidFunction* function);

// What a test told calls to do.
struct Behaviour {
    std::optional<XrResult> result;
    bool throws = false;
    std::function<void()> pass_gate;
};

// All that is known of one function.
struct Script {
    std::any usual;  // std::function of the function's signature
    PFN_xrVoidFunction entry = nullptr;
    bool lacking = false;
    std::any body;
    Behaviour always;
    std::map<int, Behaviour> by_call;  // by the number of the call
    int calls = 0;

    Behaviour& nth_from_now(int nth) { return by_call[calls + nth]; }
};

// What one call does, settled under the mutex and carried out without it.
struct Plan {
    std::any body;
    Behaviour behaviour;
};

struct FakeRuntime::State {
    explicit State(FakeRuntime& owner) : settings(owner) { add_usual_answers(); }

    void add_usual_answers();
    template <Function kFunction, typename Pfn, typename Usual>
    void add(const char* name, Usual usual);

    // Counts a call and settles what becomes of it. With the mutex held.
    static Plan plan_call(Script& script);
    // Waits or throws as planned; the failure that takes the place of the usual answer, if there is one.
    static std::optional<XrResult> carry_out(const Plan& plan, const char* name);

    // Writes the call down and does what the script says.
    template <typename... Args>
    XrResult perform(const char* name, Args... args);

    // Changes what is known of a function.
    template <typename Change>
    void tell(const std::string& name, const Change& change) {
        std::lock_guard lock(mutex);
        change(script(name));
    }
    Script& script(const std::string& name) {
        const auto found = scripts.find(name);
        if (found == scripts.end()) throw std::logic_error("FakeRuntime knows no " + name);
        return found->second;
    }

    // Spatial entity functions, which are not there at first.
    void set_spatial_entities_lacking(bool lacking) {
        for (auto& [name, entry] : scripts) {
            if (name.ends_with("KS")) entry.lacking = lacking;
        }
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
        std::erase_if(live, [&](std::uint64_t value) {
            return value == HandleValue(handle) || owners[value] == HandleValue(handle);
        });
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
    std::map<std::uint64_t, std::uint64_t> owners;  // of the actions: their set
    std::deque<XrEventDataBuffer> events;
    std::map<std::string, std::pair<XrPosef, XrSpaceLocationFlags>> places;
    XrInstance instance = XR_NULL_HANDLE;
    std::int64_t frames = 0;
    XrAsyncRequestIdKS requests = 0;
};

}  // namespace orvanic_xr
