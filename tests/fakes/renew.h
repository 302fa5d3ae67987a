// Process-wide objects keep what earlier tests of the same program left in them.
#pragma once

#include <memory>

namespace orvanic_xr {

// Gives `singleton` the state in which it was made. No other thread may be using it.
template <typename Singleton>
void Renew(Singleton& singleton) {
    std::destroy_at(&singleton);
    std::construct_at(&singleton);
}

}  // namespace orvanic_xr
