#pragma once
// How long work tells its caller how far it has come.
#include <functional>

namespace velmora {

using ProgressFn = std::function<void(double)>;  // fraction 0 … 1, never going back

}  // namespace velmora
