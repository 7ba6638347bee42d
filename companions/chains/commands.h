// The commands of zeph-chains. Each says what it did on standard output and faults on standard error, and
// returns the exit code of the program.
#pragma once

#include "chains/command_options.h"

namespace zeph::chains {

constexpr int exit_done = 0;    // all rounds asked for are there, or the jobs are submitted
constexpr int exit_fault = 1;   // refused, or a chain failed
constexpr int exit_command = 2; // command line
constexpr int exit_stopped = 3; // chains ended before their last round: `continue` continues them

int run_chains(const run_options& o);
int continue_chains(const continue_options& o);
int tell_status(const fs::path& runs);
int stop_chains(const fs::path& runs);

// Of the batch file: makes the next segment of a chain, or takes up its last one, for the process, and prints
// its directory; prints nothing when no round is left or a stop was asked for.
int advance_chain(const fs::path& runs, int chain, int process);

} // namespace zeph::chains
