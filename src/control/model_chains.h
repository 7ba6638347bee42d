// The flows over models: a whole chain for each model in turn (analysis type 5), and
// a chain that moves between models (6 and above).
#pragma once

#include "control/run.h"

namespace zeph {

// The final reports of the model in force.
void report_run(run& r);

// The next model of the enumeration, the last factor turning fastest, dimensions 1..n_rc.
// Each factor looked at is reported on the listing, "i" from the last one down, "j" for those
// that start at 1 again. False after the last model: the vector stays. GIF of each
// factor becomes the inverse of the start matrix's leading block.
bool next_model(run& r);

// For each model of the enumeration: "Current model" with the model vector, nburn+nround
// rounds, without a stop test but with the word `state`, the final reports. Solutions and residual matrices
// carry over from model to model; sums of samples start from zero. A restart too begins with round 1 of the
// first model. A chain that is continued begins in the model and after the round of r_state. With the word
// `state` it is saved between two models too, since files begin again there.
void run_models(run& r);

// Rounds nburn+1 .. nburn+nround of a chain that moves between models, those that are finished left out. A
// file STOP ends the chain after a round of the interval, with the word `state` after any round.
// state.iround is afterwards the round left, or one past the last round.
void run_jump_rounds(run& r);

// Burn-in in the smallest model, without a stop test but with the word `state`, the rounds with moves, the
// final reports.
void run_jump_chain(run& r);

} // namespace zeph
