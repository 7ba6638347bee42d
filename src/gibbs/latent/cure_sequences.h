// Cure sequences: a cure model over the records of one subject, which are together (SEQ_M). Kind 7
// is the status at each position, kind 8 whether the subject can fail at all.
//
// CURE_YHAT(t,i) are the fitted values of trait t at position i of the sequence, LOG_Z(t,i) what is
// held of it, CURE_Y(t) what the records show.
#pragma once

#include "input/run_records.h"

namespace zeph {

struct scan_records;

// One pass over the records for kinds 7 and 8: as a sequence ends, whether the subject can fail is
// drawn where its status leaves that open, one uniform of the combined source, with probability
//   1 - d,  d = Q/(prod Phi + Q),  prod the product of Q over the positions of kind 7,
// Phi and Q the lower and upper tail of the normal distribution at the fitted values; then the
// liabilities of its records (liab_sample).
void bddrmc_cure(scan_records& r, const directives& asked, const round_state& state);

} // namespace zeph
