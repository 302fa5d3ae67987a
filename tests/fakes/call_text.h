// How FakeRuntime writes a call: every argument that a test looks at as a text, the others left out.
#pragma once

#include <openxr/openxr.h>

#include <charconv>
#include <concepts>
#include <cstdint>
#include <map>
#include <string>
#include <type_traits>

#include "xr/handles.h"
#include "xr/spatial_entity_ks.h"

namespace orvanic_xr {

struct CallNames {
    std::map<std::uint64_t, std::string> handles;
    std::map<XrPath, std::string> paths;

    std::string handle(std::uint64_t value) const;
    std::string path(XrPath path) const;  // one that is not known is a decimal number
};

// The arguments of a call, of which those that leave no text are left out.
class CallText {
 public:
    explicit CallText(const CallNames& names) : names_(names) {}

    void add(XrInstance handle) { put(names_.handle(HandleValue(handle))); }
    void add(XrSession handle) { put(names_.handle(HandleValue(handle))); }
    void add(XrSpace handle) { put(names_.handle(HandleValue(handle))); }
    void add(XrAction handle) { put(names_.handle(HandleValue(handle))); }
    void add(XrActionSet handle) { put(names_.handle(HandleValue(handle))); }
    void add(const char* text) { put(text ? text : "null"); }
    // Paths, but also system ids and request ids, which are numbers to both.
    void add(std::uint64_t atom) { put(names_.path(atom)); }
    void add(std::int64_t time) { put(std::to_string(time)); }
    void add(std::uint32_t number) { put(std::to_string(number)); }
    void add(std::int32_t number) { put(std::to_string(number)); }
    void add(float number);
    void add(const XrPosef& pose);
    void add(const XrInstanceCreateInfo* info);
    void add(const XrSessionCreateInfo* info);
    void add(const XrReferenceSpaceCreateInfo* info);
    void add(const XrActionSpaceCreateInfo* info);
    void add(const XrActionSetCreateInfo* info);
    void add(const XrActionCreateInfo* info);
    void add(const XrFrameEndInfo* info);
    void add(const XrInteractionProfileSuggestedBinding* info);
    void add(const XrSessionActionSetsAttachInfo* info);
    void add(const XrActionsSyncInfo* info);
    void add(const XrActionStateGetInfo* info);
    template <typename Pointee>
    void add(Pointee* /*to be filled, or of no interest*/) {}

    const std::string& text() const { return text_; }

 private:
    void put(const std::string& part);
    bool put_if_null(const void* pointer);

    const CallNames& names_;
    std::string text_;
};

}  // namespace orvanic_xr
