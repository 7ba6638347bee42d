// Parents that a pedigree names without giving them a line of their own: founders, or codes of "unknown".
#pragma once

#include "prepare/parts/pedigree_records.h"

#include <cstdint>
#include <vector>

namespace zeph::prepare {

struct unlisted_parent {
  std::int32_t animal = 0;    // number in the pedigree, from 1
  std::int64_t n_progeny = 0; // animals of which it is a parent; one that has it as sire and dam counts once
  std::int64_t n_as_sire = 0;
  std::int64_t n_as_dam = 0;
  std::int64_t first_line = 0; // where it is a parent first
};

// All animals without a line (line 0), those with most progeny first, of equals the first in the file.
std::vector<unlisted_parent> unlisted_parents(const pedigree& ped);

// Error for each of them that looks like a code of an unknown parent, unless `founders` of the request names
// it: a word for nothing (missing_words.h); zeros ("00"); a negative number where no animal with a line has
// one; all nines, when above every animal with a line or both sire and dam; without selfing, whatever is sire
// and dam. The others are noted with their progeny; one that is parent of more than a quarter of the animals
// with a known parent, and of two or more, is warned of.
void check_unlisted_parents(const pedigree& ped, const pedigree_request& request, message_log& log);

} // namespace zeph::prepare
