// One line per chain: its state.
#pragma once

#include "chains/chain_plan.h"
#include "chains/round_pace.h"

#include <string>

namespace zeph::chains {

// "chain 1  round 3400 of 11000  212/s  0:36 left"; "(burn-in)" after the rounds while it lasts. pace 0: not
// known.
std::string progress_line(const study& s, int chain, std::int64_t round, double pace);

// The line of `status`: segment, state, rounds, samples on disk, seeds.
std::string standing_line(const fs::path& runs, const study& s, int chain, const chain_position& p);

// Sample rounds on disk of all segments of a chain that count.
std::int64_t samples_of(const fs::path& runs, int chain);

} // namespace zeph::chains
