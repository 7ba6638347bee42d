// What the word `exact` of the file `sampler` needs before the first round.
#pragma once

#include "control/run.h"

namespace zeph {

// Refuses what the exact sampler has no draw for, in the form for bad input, file `sampler`: called when the
// data are loaded and before any draw of a latent value. Then mixture coefficients become 0 or 1, the
// components are counted, and the parts of the residual matrix are found.
void begin_exact_sampler(run& r);

// After the start values: the body of the scan has to be the one that keeps residuals; the levels that meet
// in records are found.
void find_exact_forms(run& r);

} // namespace zeph
