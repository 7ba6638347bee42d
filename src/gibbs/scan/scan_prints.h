// Test prints of the scan.
#pragma once

#include "gibbs/scan/scan_records.h"
#include "input/run_records.h"

namespace zeph {

// The equations at the head of a round: right-hand sides and
// solutions (50 at most), the diagonal blocks of each group (50 levels at
// most), and in round 1 the first block of each group, before and after them.
void print_equations(const equation_layout& layout, const sampler_store& sampler, reporting& report,
                     const round_state& state);

} // namespace zeph
