// How far a chain has come and which segment comes next.
#pragma once

#include "chains/segment_state.h"
#include "chains/work_model.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::chains {

struct chain_position {
  int segment = 0;                 // the last one; 0: none
  segment_state state;             // of that segment
  std::int64_t done = 0;           // rounds of the chain that are done, burn-in included
  std::vector<std::string> faults; // why it can't continue now; empty when it can, or has nothing left

  bool running() const { return segment > 0 && state.live(); }
};

// The last segment is continued in its own directory, from the state that it saved, however it ended. One
// that only ends a burn-in is not continued beyond it.
bool resumes(const chain_position& p);

// The chain has all rounds up to this one, and the reports of its end.
bool is_complete(const chain_position& p, std::int64_t last);

// Looks at the last segment of the chain, passing over one that never began.
chain_position position_of(const fs::path& runs, const study& s, int chain);

// Adds to the position why the chain can't be continued: it runs; or its last segment, without a saved state,
// failed or was killed, or has files that do not fit the model. A chain without a segment can always begin.
void check_continuation(const fs::path& runs, const study& s, const work_model& m, int chain,
                        chain_position& p);

// The segment that follows, of a chain with rounds left: the first one; the rest of a burn-in that was
// stopped, which does not count; or a continuation to the chain's last round.
segment_record next_segment(const study& s, int chain, const chain_position& p);

// The record of the last segment, continued in its own directory now, to the chain's last round.
segment_record resumed_segment(const study& s, int chain, const chain_position& p);

// Types of analysis whose chains zeph-chains runs: a line, or empty when it does.
std::string run_fault(std::int32_t number);

// Chains that begin their next segment from lastsol and gparlast of the one before: a line for those that
// can't, which a trait or the type of analysis decides. Segments with a saved state don't need them.
std::string continue_fault(const study& s, const work_model& m);

} // namespace zeph::chains
