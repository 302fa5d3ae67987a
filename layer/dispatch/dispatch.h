// The way down to the next layer: one flat table of its functions, and the one object that owns the table.
//
// Hooks and tools on any thread read slots. A reader copies the pointer under the mutex and calls it with the
// mutex released, so the mutex is not held while the runtime works. The one exception is the look-up of a function that
// the table lacks: the next layer's xrGetInstanceProcAddr is asked under it. The table is replaced when an
// instance is created and stays in place when one is destroyed: there is one holder, so one instance is
// served at a time and the last one created wins.
#pragma once

#include <openxr/openxr.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>

#include "xr/spatial_entity_ks.h"

namespace orvanic_xr {

// Zero filled at first, so a function that the runtime lacks stays null; an optional function is tested where
// it is used.
struct NextDispatchTable {
    PFN_xrGetInstanceProcAddr GetInstanceProcAddr = nullptr;
    // Never fetched: these two are asked for with no instance, at creation.
    PFN_xrVoidFunction EnumerateApiLayerProperties = nullptr;
    PFN_xrVoidFunction EnumerateInstanceExtensionProperties = nullptr;
#define VELMOOR_NEXT_CALLED(Name) PFN_xr##Name Name = nullptr;
#define VELMOOR_NEXT_TABLED(Name) PFN_xrVoidFunction Name = nullptr;
#include "layer/dispatch/dispatch_functions.inc"
#undef VELMOOR_NEXT_CALLED
#undef VELMOOR_NEXT_TABLED
};

inline constexpr std::size_t kDispatchFunctionCount = 403;
static_assert(sizeof(NextDispatchTable) == (3 + kDispatchFunctionCount) * sizeof(void*));

// Asks `next` for every function of the table, in order. Results are ignored: a function that is not there
// leaves its slot null.
void PopulateDispatchTable(NextDispatchTable& table, XrInstance instance, PFN_xrGetInstanceProcAddr next);

class DispatchHolder {
 public:
    static DispatchHolder& instance();

    // Takes the table that was filled for `xr_instance` and frees the one before it.
    void Replace(std::unique_ptr<NextDispatchTable> table, XrInstance xr_instance, PFN_xrGetInstanceProcAddr next);

    // False until the first instance was created. Takes no lock.
    bool has_table() const { return has_table_.load(std::memory_order_acquire); }

    // A copy of one slot, as Slot(&NextDispatchTable::LocateSpace). Null if there is no table or no such function.
    template <typename Function>
    Function Slot(Function NextDispatchTable::*slot) const {
        std::lock_guard lock(mutex_);
        return table_ ? (*table_).*slot : nullptr;
    }

    // Calls the function of a slot; one that is not there answers as a runtime would that doesn't know it.
    template <typename... Parameters, typename... Arguments>
    XrResult Call(XrResult (XRAPI_PTR* NextDispatchTable::*slot)(Parameters...), Arguments... arguments) const {
        const auto function = Slot(slot);
        return function ? function(arguments...) : XR_ERROR_FUNCTION_UNSUPPORTED;
    }

    // A function that the table does not hold (extensions), asked of the next layer under the mutex. Null if it
    // is not to be had, also where the look-up throws.
    template <typename Function>
    Function Resolve(const char* name) const {
        return reinterpret_cast<Function>(ResolveVoid(name));
    }

    XrInstance xr_instance() const;

 private:
    PFN_xrVoidFunction ResolveVoid(const char* name) const;

    std::atomic<bool> has_table_ = false;

    // Guards the three fields below.
    mutable std::mutex mutex_;
    std::unique_ptr<NextDispatchTable> table_;
    XrInstance instance_ = XR_NULL_HANDLE;
    PFN_xrGetInstanceProcAddr next_get_instance_proc_addr_ = nullptr;
};

}  // namespace orvanic_xr
