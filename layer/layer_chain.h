// The chain of API layers below this one, as the loader describes it at creation.
#pragma once

#include <openxr/openxr.h>
#include <openxr/openxr_loader_negotiation.h>

#include <deque>

#include "xr/loader_chain.h"

namespace orvanic_xr {

// Whether the loader's records are what this layer can work with: sizes may be larger than the published ones,
// and the first entry must bear one of the layer's names.
bool ValidCreateInfo(const XrApiLayerCreateInfo* info);

// What is handed to the next layer, and the two functions to reach it by.
//
// An application can enable both names of the layer, and the loader then creates it twice, one above the other.
// All state of the library is the process's, so two copies at work would forward to each other for ever: the
// upper one does the work, and every other one below is left out of the chain that it passes on. Layers in
// between keep their place.
class ChainBelow {
 public:
    // `info` is valid. Nothing of it is changed; it must outlive this object.
    explicit ChainBelow(const XrApiLayerCreateInfo& info);
    ChainBelow(const ChainBelow&) = delete;
    ChainBelow& operator=(const ChainBelow&) = delete;

    PFN_xrGetInstanceProcAddr next_get_instance_proc_addr = nullptr;
    PFN_xrCreateApiLayerInstance next_create_api_layer_instance = nullptr;
    XrApiLayerCreateInfo create_info;  // with its chain moved on by one layer
    bool left_out_a_copy = false;

 private:
    void LeaveOutOtherCopies(const XrApiLayerNextInfo& own);

    std::deque<XrApiLayerNextInfo> relinked_;
};

}  // namespace orvanic_xr
