// The latent variables of a round, after the (co)variance matrices.
#pragma once

#include "control/run_frame.h"
#include "gibbs/scan_records.h"

namespace zeph {

// Replaces the latent values of all records in their order: liabilities of
// categorical traits, thresholds, cure sequences, mixtures, censored traits.
void update_latent_variables(scan_records& r, const run_frame& f);

} // namespace zeph
