// The whole run, in its one fixed order.
#pragma once

#include "control/run.h"

namespace zeph {

// Everything before the first round: model, directive lines, layout, start
// values, data, result files.
void start_run(run& r);

// From the check of the input files to the last words. Returns after a normal
// end; every other end is a run_stop.
void run_driver(run& r);

// run_driver under main's catch: the exit code of the process. An end that the
// program has not foreseen (no storage for a text, say) gives code 16 too.
int exit_code_of_run(run& r);

} // namespace zeph
