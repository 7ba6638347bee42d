// The saved state of a chain, looked at without running it: statelast, from which its segment is continued,
// or lastsol and gparlast, from which the next segment begins.
#pragma once

#include "chains/work_model.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::chains {

// One line for each thing that does not fit: a file that is missing, whose records are not those of the
// model, whose number of equations differs, or whose seeds are not these. Names the files with `directory`.
// Empty: a run of the model with these seeds can continue from them.
std::vector<std::string> state_faults(const fs::path& directory, const work_model& m, seed_pair seeds);

// The round saved in gparlast: the last round after a full count, the one before the last after STOP. False
// when the file can't be read.
bool saved_round(const fs::path& directory, std::int64_t& round);

constexpr const char* saved_state_name = "statelast";
constexpr const char* given_state_name = "r_state"; // a state that a run has continued from

// Where the chain was that a segment is continued from: its statelast, else its r_state.
struct saved_place {
  bool there = false; // one of the files
  bool known = false; // the head of the file could be read; what is wrong with another one, ZEPH says
  std::int32_t analysis = 0;
  std::int64_t round = 0; // analysis type 5: of the model in force
};

saved_place find_saved_state(const fs::path& directory);

} // namespace zeph::chains
