// The instance extensions that can be had below this layer.
#pragma once

#include <set>
#include <string>

#include "layer/layer_chain.h"

namespace orvanic_xr {

// What any of the layers below has, and the runtime. A layer can answer for itself alone, and some don't answer at all,
// so each is asked. Empty where nobody answers.
std::set<std::string> AvailableExtensions(const ChainBelow& chain);

}  // namespace orvanic_xr
