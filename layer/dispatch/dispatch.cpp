#include "layer/dispatch/dispatch.h"

#include <utility>

namespace orvanic_xr {

void PopulateDispatchTable(NextDispatchTable& table, XrInstance instance, PFN_xrGetInstanceProcAddr next) {
    table.GetInstanceProcAddr = next;
    const auto fetch = [&](const char* name, auto& slot) {
        next(instance, name, reinterpret_cast<PFN_xrVoidFunction*>(&slot));
    };
#define VELMOOR_NEXT_CALLED(Name) fetch("xr" #Name, table.Name);
#define VELMOOR_NEXT_TABLED(Name) fetch("xr" #Name, table.Name);
#include "layer/dispatch/dispatch_functions.inc"
#undef VELMOOR_NEXT_CALLED
#undef VELMOOR_NEXT_TABLED
}

DispatchHolder& DispatchHolder::instance() {
    // Never destroyed: threads of ours may still read it while the process ends.
    static DispatchHolder& holder = *new DispatchHolder;
    return holder;
}

void DispatchHolder::Replace(std::unique_ptr<NextDispatchTable> table, XrInstance xr_instance,
                             PFN_xrGetInstanceProcAddr next) {
    std::lock_guard lock(mutex_);
    table_.swap(table);
    instance_ = xr_instance;
    next_get_instance_proc_addr_ = next;
    has_table_.store(table_ != nullptr, std::memory_order_release);
}

XrInstance DispatchHolder::xr_instance() const {
    std::lock_guard lock(mutex_);
    return instance_;
}

PFN_xrVoidFunction DispatchHolder::ResolveVoid(const char* name) const {
    std::lock_guard lock(mutex_);
    if (!next_get_instance_proc_addr_) return nullptr;
    PFN_xrVoidFunction function = nullptr;
    try {
        if (XR_SUCCEEDED(next_get_instance_proc_addr_(instance_, name, &function))) return function;
    } catch (...) {  // a function that can't be looked up is not there
    }
    return nullptr;
}

}  // namespace orvanic_xr
