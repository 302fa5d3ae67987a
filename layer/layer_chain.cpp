#include "layer/layer_chain.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace orvanic_xr {
namespace {

constexpr std::string_view kLayerNames[] = {"XR_APILAYER_KESTX_orvanic", "XR_APILAYER_KESTX_velmoor"};

bool IsOwn(const XrApiLayerNextInfo& entry) {
    const std::string_view name(entry.layerName, strnlen(entry.layerName, sizeof entry.layerName));
    return std::ranges::find(kLayerNames, name) != std::end(kLayerNames);
}

bool HasFunctions(const XrApiLayerNextInfo& entry) {
    return entry.nextGetInstanceProcAddr && entry.nextCreateApiLayerInstance;
}

// Another copy of this layer somewhere below `entry`, on the part of the chain that can be read.
bool OwnBelow(const XrApiLayerNextInfo* entry) {
    for (; entry && IsReadable(*entry); entry = entry->next) {
        if (IsOwn(*entry)) return true;
    }
    return false;
}

}  // namespace

bool ValidCreateInfo(const XrApiLayerCreateInfo* info) {
    static_assert(sizeof(XrApiLayerCreateInfo) == 544);
    if (!info || info->structType != XR_LOADER_INTERFACE_STRUCT_API_LAYER_CREATE_INFO || info->structVersion == 0 ||
        info->structSize < sizeof(XrApiLayerCreateInfo) || !info->nextInfo) {
        return false;
    }
    return IsReadable(*info->nextInfo) && IsOwn(*info->nextInfo) && HasFunctions(*info->nextInfo);
}

ChainBelow::ChainBelow(const XrApiLayerCreateInfo& info)
    : next_get_instance_proc_addr(info.nextInfo->nextGetInstanceProcAddr),
      next_create_api_layer_instance(info.nextInfo->nextCreateApiLayerInstance),
      create_info(info) {
    create_info.structSize = sizeof create_info;
    create_info.nextInfo = info.nextInfo->next;
    if (OwnBelow(create_info.nextInfo)) LeaveOutOtherCopies(*info.nextInfo);
}

void ChainBelow::LeaveOutOtherCopies(const XrApiLayerNextInfo& own) {
    relinked_.push_back(own);
    XrApiLayerNextInfo* above = &relinked_.back();
    while (above->next && IsReadable(*above->next)) {
        const XrApiLayerNextInfo& entry = *above->next;
        if (IsOwn(entry) && HasFunctions(entry)) {
            // What lies below the copy moves up into its place.
            above->nextGetInstanceProcAddr = entry.nextGetInstanceProcAddr;
            above->nextCreateApiLayerInstance = entry.nextCreateApiLayerInstance;
            above->next = entry.next;
            left_out_a_copy = true;
            continue;
        }
        relinked_.push_back(entry);
        relinked_.back().structSize = sizeof(XrApiLayerNextInfo);
        above->next = &relinked_.back();
        above = above->next;
    }
    next_get_instance_proc_addr = relinked_.front().nextGetInstanceProcAddr;
    next_create_api_layer_instance = relinked_.front().nextCreateApiLayerInstance;
    create_info.nextInfo = relinked_.front().next;
}

}  // namespace orvanic_xr
