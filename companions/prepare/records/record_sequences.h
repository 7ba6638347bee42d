// The records of a subject as a sequence: its positions, and the order that the files ask for.
#pragma once

#include "prepare/records/data_columns.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::prepare {

// Spans over the records of the file. Empty without a trait of kind sequence.
struct record_sequences {
  std::vector<std::int32_t>
      position; // 1, 2, .. in the subject's order, the last one negative; a record without the
                // trait is a sequence of its own: -1
  std::vector<std::int64_t> rank; // ascending in the order of the files: subjects by their first record
  std::int64_t n_subjects = 0;
  std::int64_t n_with_event = 0;
  std::int32_t longest = 1;
};

// Sequences of trait t (kind sequence) over its present records. Errors: a position of a subject that is no
// whole number from 1, that appears twice, or that no record has though a later one is there; records without
// the trait count for that.
record_sequences make_sequences(const model_description& d, const data_columns& data, int t,
                                const std::vector<std::uint8_t>& present, message_log& log);

} // namespace zeph::prepare
