// Ordered categorical traits in memory: categories of the records, thresholds
// and their sums over the samples.
#pragma once

#include "numerics/arrays.h"

namespace zeph {

struct category_store {};

} // namespace zeph
