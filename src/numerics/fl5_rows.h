// Standard normals of the Marsaglia source by FL5 (Ahrens and Dieter 1973), a row of uniforms at once:
// the same deviates, in the same order, as fl5_normal gives them one by one.
#pragma once

#include "numerics/random_sources.h"

namespace zeph {

// One standard normal whose first uniform, still to be drawn, does not give it at once.
double ranmar_snorm_in_wedge(marsaglia_source& source);

// n standard normals into x(1..n), the same as n calls, faster from n = 16 on.
// n <= 0 draws nothing.
void ranmar_snorms(marsaglia_source& source, double* x, std::int64_t n);

} // namespace zeph
