// The component of a record in a two-component mixture, drawn together with the liability of its indicator.
//
// For indicator t of a record let e'_c be the residuals of all other traits if t's coefficients are on
// (c = 1) or off (c = 0), and R_c the record's residual matrix, or that of group 1 + c where t is the last
// indicator and there are two groups. With m_c and s_c^2 mean and variance of e_t given e'_c under R_c,
//   p_c = N(e'_c; 0, R_c without t) Phi(+-(w^1/2 fitted_t + m_c)/s_c),  + for c = 1,
// the component is 1 with probability tau = p_1/(p_1 + p_0), formed in logs, and e_t is then normal on the
// side that the component implies: one draw of the pair from its full conditional distribution.
#pragma once

#include "input/run_records.h"

#include <cstdint>

namespace zeph {

struct scan_records;

// Draws all indicators of record irec, traits ascending: of each one uniform, then the residual. A switch
// that would leave a component fewer records than its prior needs is not made: tau is then 1 or 0, the
// uniform is drawn. The record's values have been taken and are taken again after a switch. In rounds of
// samples tau enters its sums.
void draw_components(scan_records& r, const directives& asked, const round_state& state, std::int32_t irec);

// Counts the record in mix_pi of the traits whose mixture coefficients are on.
void count_components_of_record(scan_records& r, const directives& asked, const round_state& state,
                                std::int32_t irec);

} // namespace zeph
