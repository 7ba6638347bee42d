// The saved state of a chain, lastsol and gparlast, looked at without running it.
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

} // namespace zeph::chains
