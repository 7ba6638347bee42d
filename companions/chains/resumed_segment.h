// Continues a segment in its own directory, from the state that it saved.
//
// What is done, in this order, so that a break at any place leaves a segment that can be continued again:
//   statelast becomes r_state     without one r_state stays, of a run killed before its first save
//   oldsol, r_parm are removed    all of the chain is in r_state
//   directive file, segment.toml  with the rounds asked for, and a [[resume]] more
//   process                       names the caller: from then on the segment runs
//   exit, status, STOP removed    of the run before
// The listing is kept: the run writes at its end.
#pragma once

#include "chains/chain_plan.h"

#include <string>

namespace zeph::chains {

// Makes the segment ready for ZEPH; r: resumed_segment. While it is done no other call for this segment is
// let in. False with `fault` when the segment runs, or on a failure of the disk. A segment that has saved no
// state begins from its start: what it has written is written over.
bool resume_segment(const fs::path& runs, const study& s, const segment_record& r, pid_t runner,
                    std::string& fault);

// A segment on another host of which nothing is known was killed when Slurm holds its job no longer, and when
// the caller is in that job: a task that was put back into the queue and has begun again.
void settle_by_queue(segment_state& s);

} // namespace zeph::chains
