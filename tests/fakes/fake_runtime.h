// A next layer inside the test. It answers every function that the layer calls, writes down each call in order,
// and does what a test tells it: fail, lack, throw, wait, or run the test's own code.
//
//     FakeRuntime runtime;  // is the next layer of DispatchHolder from here on
//     runtime.answer("xrEndFrame", XR_ERROR_TIME_INVALID);
//     EXPECT_EQ(OrvanicLayerXrEndFrame(session, &info), XR_ERROR_TIME_INVALID);
//     EXPECT_THAT(runtime.take_calls(), ElementsAre("xrEndFrame(session1, displayTime=5, layers=1)"));
//
// In the texts a handle bears the name that it got at its creation: "instance1", "session1", a reference space's
// type ("VIEW", in a second session "VIEW#2"), an action's or action set's own name, "space(<action>)" or
// "space(<action>, <subaction path>)". A handle that the fake did not hand out is hexadecimal. Paths are texts,
// poses "[position | orientation]", structures what tests look at. Pointers to be filled are left out.
//
// Handles count up from 0x1001 for instances, 0x2001 sessions, 0x3001 spaces, 0x4001 action sets, 0x5001 actions.
// Functions are called and told off from any thread. A function's name is spelled as in OpenXR; a name that the
// fake does not know throws std::logic_error.
#pragma once

#include <openxr/openxr.h>
#include <openxr/openxr_loader_negotiation.h>

#include <any>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orvanic_xr {

// Holds one call of a function back until it is opened, at most ten seconds.
class Gate {
 public:
    Gate() = default;
    Gate(Gate&&) = default;
    ~Gate() {
        if (state_) open();
    }
    // True when the call is (or was) held; false after ten seconds without it. Once.
    bool wait_for_caller();
    void open();

 private:
    friend class FakeRuntime;
    struct State {
        std::promise<void> entered, open;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
    bool is_open_ = false;
};

class FakeRuntime {
 public:
    enum class Installed { kYes, kNo };
    // Not installed, it is the next layer once the layer's create function has been given its two pointers below.
    explicit FakeRuntime(Installed installed = Installed::kYes);
    // Takes itself out of DispatchHolder, which then has no table.
    ~FakeRuntime();
    FakeRuntime(const FakeRuntime&) = delete;
    FakeRuntime& operator=(const FakeRuntime&) = delete;

    void install();
    static void uninstall();
    // The instance it is installed for, or that was created last: "instance1".
    XrInstance instance() const;

    static PFN_xrGetInstanceProcAddr next_get_instance_proc_addr();
    static PFN_xrCreateApiLayerInstance next_create_api_layer_instance();

    // What to do from now on. A failure code takes the place of the call; a success code is returned after the
    // usual answer was made. The last word on a function counts.
    void answer(const std::string& name, XrResult result);
    // The same for one call only: the `nth` from now, 1 being the next.
    void answer_call(const std::string& name, int nth, XrResult result);
    void answer_once(const std::string& name, XrResult result) { answer_call(name, 1, result); }
    // Throws std::runtime_error from the function: always, or from the `nth` call from now.
    void throw_from(const std::string& name);
    void throw_from_call(const std::string& name, int nth);
    // The function is not to be had: its slot becomes null, and a look-up fails. `offer` brings it back.
    void lack(const std::string& name);
    void offer(const std::string& name);
    // At first the fake lacks the spatial entity functions, as a runtime without the extension does.
    void offer_spatial_entities();
    // Holds the `nth` call of the function from now.
    Gate block_call(const std::string& name, int nth);
    // Runs `body` in place of the usual answer. Its signature is exactly the OpenXR function's; std::logic_error
    // otherwise. It runs with nothing locked and may use the fake.
    template <typename Body>
    void on(const std::string& name, Body body) {
        set_body(name, std::any(std::function(std::move(body))));
    }
    // The usual, successful behaviour again: undoes answers, throws, gates and bodies of `name`.
    void behave(const std::string& name);

    // Every call since the beginning or the last take, oldest first; `calls` of one function by its name.
    std::vector<std::string> take_calls();
    std::vector<std::string> calls() const;
    std::vector<std::string> calls(const std::string& name) const;
    // The names that were looked up since the last take; tables being filled are not counted.
    std::vector<std::string> take_lookups();
    // Names of the handles that were created and not destroyed, in the order of creation; actions go with their set.
    std::vector<std::string> live_handles() const;
    std::string name_of(std::uint64_t handle) const;
    XrPath path(const std::string& text);
    std::string text(XrPath path) const;

    // Events for xrPollEvent, in order; without one it answers XR_EVENT_UNAVAILABLE.
    void push_event(const XrEventDataBuffer& event);
    void push_session_state(XrSession session, XrSessionState state);

    // What xrLocateSpace answers for the space of that name, whatever the base space is. Without it a space is
    // located at the identity with all four flags.
    void place(const std::string& space_name, const XrPosef& pose, XrSpaceLocationFlags flags = 0xF);

    // What the usual answers hold; set them before the call that reads them. Frame n (from 0) is predicted for
    // second 1 + n hundredths.
    std::vector<std::string> extensions;
    XrSystemProperties system;
    XrBool32 should_render = XR_TRUE;

    struct State;

 private:
    void set_lacking(const std::string& name, bool lacking);
    void set_body(const std::string& name, std::any body);
    std::unique_ptr<State> state_;
};

}  // namespace orvanic_xr
