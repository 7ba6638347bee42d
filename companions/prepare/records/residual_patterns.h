// Missing patterns and residual groups of the used records.
#pragma once

#include "prepare/records/record_selection.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::prepare {

// Patterns count from 1; pattern 1 is the complete one, whether or not a record has it; the others follow by
// falling mask. In a mask trait t = 1..nt is bit nt - t.
struct residual_patterns {
  std::vector<std::int32_t> mask;          // per pattern
  std::vector<std::int64_t> n_records;     // per pattern
  std::vector<std::int32_t> pattern;       // per used record: 1..
  std::vector<std::string> group_codes;    // as in the data; empty: one group
  std::vector<std::int32_t> group_numbers; // the codes as integers, or 1..
  std::vector<std::int32_t> group;         // per used record: 1..; empty without groups
};

residual_patterns make_patterns(const model_description& d, const data_columns& data,
                                const record_selection& records, message_log& log);

// Traits of a mask, 0-based.
std::vector<int> traits_of(std::int32_t mask, int nt);

} // namespace zeph::prepare
