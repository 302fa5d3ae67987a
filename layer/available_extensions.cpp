#include "layer/available_extensions.h"

#include "diagnostics/logger.h"
#include "external/fixed_text.h"

namespace orvanic_xr {
namespace {

void LogWhatWasTold(const ToldExtensions& told) {
    switch (told.failure) {
        case ToldExtensions::Failure::kNoFunction:
            LogWarning("xrEnumerateInstanceExtensionProperties function is not available");
            return;
        case ToldExtensions::Failure::kFirstCall:
            LogWarning("Failed to enumerate instance extensions (first call), result: ", told.result);
            return;
        case ToldExtensions::Failure::kSecondCall:
            LogWarning("Failed to enumerate instance extensions (second call), result: ", told.result);
            return;
        case ToldExtensions::Failure::kNone:
            break;
    }
    if (told.names.empty()) {
        LogInfo("No instance extensions available");
    } else {
        LogInfo("Queried available extensions, count: ", told.names.size());
    }
}

void AddExtensionsBehind(PFN_xrGetInstanceProcAddr get_instance_proc_addr, std::set<std::string>& all) {
    ToldExtensions told = AskForExtensions(get_instance_proc_addr);
    LogWhatWasTold(told);
    all.merge(told.names);
}

}  // namespace

std::set<std::string> AvailableExtensions(const ChainBelow& chain) {
    std::set<std::string> all;
    AddExtensionsBehind(chain.next_get_instance_proc_addr, all);
    for (const XrApiLayerNextInfo* entry = chain.create_info.nextInfo; entry && IsReadable(*entry);
         entry = entry->next) {
        if (!entry->nextGetInstanceProcAddr) continue;
        LogInfo("Asking below ", TextOf(entry->layerName), " for instance extensions");
        AddExtensionsBehind(entry->nextGetInstanceProcAddr, all);
    }
    return all;
}

}  // namespace orvanic_xr
