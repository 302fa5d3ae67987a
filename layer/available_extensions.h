// The instance extensions that can be had below this layer.
#pragma once

#include <set>
#include <string>

#include "layer/layer_chain.h"

namespace orvanic_xr {

// As the next layer tells them. Some layers don't answer the question: then each that lies further below is asked, the
// runtime last, and whatever one of them has is available. Empty where nobody answers.
std::set<std::string> AvailableExtensions(const ChainBelow& chain);

}  // namespace orvanic_xr
