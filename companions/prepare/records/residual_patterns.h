// Missing patterns and residual groups of the used records, and the residual element of the model made from
// them.
#pragma once

#include "input/model_records.h"
#include "prepare/parts/start_values.h"

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

// Fills the arrays of the residual element: start matrix, held zeros, pattern tables, and for each group and
// pattern the inverse of the observed part (zero elsewhere) and its log determinant. The element's arrays
// have been taken for n_hetgr groups (at least 1) and n_pat patterns.
// Errors: a start matrix that is not positive definite. Warnings: two traits that are never in one record.
void fill_residual(const model_description& d, const record_selection& records,
                   const residual_patterns& patterns, const start_values& start, structure_record& residual,
                   message_log& log);

} // namespace zeph::prepare
