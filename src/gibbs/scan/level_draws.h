// The levels of one group drawn in line: blocks of order 1 to
// largest_unrolled_order are factored and solved without calls, levels that share
// their block share its factor, and a factor's relationship links and its sum of
// squares come out of the same walk.
#pragma once

#include "gibbs/scan/scan_records.h"
#include "input/run_records.h"
#include "numerics/column_view.h"

namespace zeph {

// Packed block D of level l (1-based) of a group of n places, from its sums: n(n+1)/2 elements.
void level_block(const sampler_store& sampler, const group_form& form, std::int32_t n, std::int32_t l,
                 column_view<double> block);

// Draws all levels of group g in order. On entry RHS holds Z_l' R^-1 e; it leaves
// with the right-hand sides of the levels as drawn. The change of the solutions
// goes into work.fast.change when keep_change, the factor's sum of squares u' A^-1 u of the new
// solutions into work.fast.square. With C = D + GIF a(l,l) = L L':
//   sol_l = L'^-1 (L^-1 (RHS_l + D sol_l - links) + z),
// z of the Marsaglia source, as many as there are equations, in their order. The
// factor is that of the unblocked routine of LAPACK (dpotf2, lower), operations in
// the same order. A block that can't be factored is reported, as by sample_level.
//
// Levels of a factor that is drawn over-relaxed (group_scan.h) take as many normals. With sum_move they leave
// work.fast.moved; not where levels meet in a record.
void draw_levels(scan_records& r, const directives& asked, std::int32_t g, bool keep_change, bool sum_move);

} // namespace zeph
