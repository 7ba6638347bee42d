// One round of the chain.
#pragma once

#include "gibbs/scan/scan_records.h"
#include "input/run_frame.h"
#include "samples/sample_files.h"

namespace zeph {

// One pass over all groups of equations and the steps after it. Where solutions
// serve as covariables (f.nfeto > 0, below analysis type 5) the pass has two
// stages: the groups that they come from; then, with the coefficients made anew
// from them, the others. Rewrites the file `status`; f.iround and f.analysis_type
// say what the pass is. On return f.ist is 0, a count of problems of the last
// block, or GS_CONVERGED, which only analysis type 0 sets: when sqrt(ssd/ssq) is
// below 1e-10.
void GIBSCAN(scan_records& r, run_frame& f, sample_files& files);

} // namespace zeph
