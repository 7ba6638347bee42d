// The chain of analysis types below 5: burn-in rounds, then sampling rounds,
// one scan each, with the stop signal between rounds.
#pragma once

#include "control/run.h"

namespace zeph {

// Runs the rounds, from the one after r_state where the chain is continued, and saves its state as the word
// `state` asks. A file STOP in the work directory ends the chain after a burn-in round or after the next
// sample round, with the word after any round; counts.stop_seen is set in burn-in, and no sampling follows.
// A converged solver ends the loop of burn-in or sampling that it is in. state.iround is afterwards the
// round left, or one past the last round.
void run_chain(run& r);

} // namespace zeph
