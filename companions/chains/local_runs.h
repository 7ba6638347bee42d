// Runs the chains of a study here: some processes at a time, one thread each.
#pragma once

#include "chains/chain_plan.h"
#include "chains/screen_lines.h"

namespace zeph::chains {

struct local_outcome {
  int complete = 0, stopped = 0, failed = 0; // chains
  bool interrupted = false;                  // by a signal
  bool left = false;                         // a second signal: the chains end by themselves
};

// Brings every chain to its last round; each may continue (check_continuation) or has nothing left. Shows a
// progress line per chain on a terminal, and else a line at each begin and end and one a chain and minute.
// SIGINT, SIGTERM and SIGHUP create STOP in every running chain; the call then waits for them and says what
// was kept. A second one leaves them to end by themselves. A file STOP in RUNS keeps chains from starting.
local_outcome run_here(const fs::path& runs, const study& s, int jobs, screen_lines& screen);

// Creates an empty file STOP. False when it can't be made.
bool ask_to_stop(const fs::path& directory);

} // namespace zeph::chains
