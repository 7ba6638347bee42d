// One round of the chain.
#pragma once

#include "gibbs/scan/scan_records.h"
#include "input/run_records.h"
#include "samples/sample_files.h"

namespace zeph {

// One pass over all groups of equations and the steps after it. Where solutions
// serve as covariables (asked.nfeto > 0, in a run of one model) the pass has two
// stages: the groups that they come from; then, with the coefficients computed
// from them, the others. Rewrites the file `status`; state.iround and asked.analysis_type
// say what the pass is. On return state.ist is 0, a count of problems of the last
// block, or GS_CONVERGED, which only the solver sets: when sqrt(ssd/ssq) is
// below 1e-10.
void GIBSCAN(scan_records& r, const directives& asked, round_state& state, chain_counts& counts,
             sample_files& files);

} // namespace zeph
