// Chains on a cluster: a Slurm job array with a task for each chain. It adds no queue, scheduler or retry.
#pragma once

#include "chains/study_records.h"

#include <string>
#include <vector>

namespace zeph::chains {

// The batch file. Its task K makes the next segment of chain K, or takes up the last one (`zeph-chains
// advance`), runs ZEPH in it, and writes the exit code to the segment's file `exit`. Slurm sends USR1 to
// the batch shell 120 seconds before the time limit; the trap creates STOP in the segment, and the segment
// ends on its next sample round. SIGTERM (scancel) does the same, within the time that Slurm leaves. Paths
// are written whole. `requeue`: Slurm may put a task back into the queue after it was pre-empted or its
// node was lost; `advance` then continues the segment from the state that it saved last.
std::string batch_text(const fs::path& runs, const study& s, const fs::path& zeph_chains, bool requeue);

// Words of the options of sbatch as a shell takes them: blanks apart, '..', "..", \c. False on an open
// quotation, or with an option that zeph-chains sets: --array, --wrap, --parsable, --dependency.
bool split_options(const std::string& options, std::vector<std::string>& words, std::string& fault);

// Writes RUNS/slurm/startN.sh and submits it `segments` times: each array but the first begins, task by task,
// when that task of the one before has ended with exit code 0. job_ids: of the arrays that were taken, also
// after a failure.
bool submit_array(const fs::path& runs, const study& s, const std::string& options, int segments,
                  bool requeue, std::vector<std::string>& job_ids, std::string& fault);

// Jobs of the list (4242, or a task 4242_3) that Slurm still holds, waiting or running. False when squeue
// can't be asked.
bool jobs_in_queue(const std::vector<std::string>& job_ids, std::vector<std::string>& held);

// Removes the waiting tasks from the queue; those that run continue. Nothing happens without scancel.
void cancel_waiting(const std::vector<std::string>& job_ids);

} // namespace zeph::chains
