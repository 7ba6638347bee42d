// A sampling round of a chain that moves between models.
#pragma once

#include "jump/jump_store.h"

namespace zeph {

// Draws the move of a round from the Marsaglia source: a factor of two rows or more,
// each equally likely, then the direction. Sets jump_k, p_up, p_down, jump_down,
// jump_dir and the new, small and large model.
void propose_move(jump_records& r);

// On the way up, before the scan: "diagonals recomputed", and CDI holds the data blocks of the
// large model, with the start inverses of the residual. RHS and DI are left to the scan. Blocks that
// can't change in the run are made once, with all rows; smaller models read the leading ones.
void recompute_data_blocks(jump_records& r);

// The matrix of the factor in the large model, its conversion and its proposal:
// cov_new, prop_scale, prop_z, conv_sol, jacobian. Up: the new row is drawn by
// `sciwhinag`, the new solutions by `samppegm` ("I") or `sampanim` ("PED"). Another
// structure: "Unknown co-variance structure ", stop, code 16.
void convert_dimension(jump_records& r);

// log_ratio takes the sign of the move; accepted when min(0, log_ratio) is above the log of a
// uniform of the Marsaglia source. A ratio that is no number is not accepted.
void decide_move(jump_records& r);

// Makes the large (up) or the small (down) model the one in force: sscp, GIF, the
// layout, the model vector, the solutions of conv_sol.
void take_move(jump_records& r);

// Round state.iround: a move is proposed, the scan updates all that the model in force has, then the
// move is decided: log u < min(0, log_ratio). Adds six rows to zeinfo, flushed.
void jump_round(jump_records& r, sample_files& files);

} // namespace zeph
