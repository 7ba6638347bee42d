// Mixture and sequence traits in memory: proportions, memberships and their
// sums over the samples.
#pragma once

#include "numerics/arrays.h"

namespace zeph {

struct mixture_store {};

} // namespace zeph
