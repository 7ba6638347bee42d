// The walk of CODE_TABLE, which gives the user's code of each level. One record
// per level, in the order of the effects: for each trait its "fixed" class
// effects, all of them, with NLEV(i,j) records; then for each random factor
// NRALEV(k) records. A record has at least six integers; of these
//   ITEM  MEANING
//   2     code of the level in the user's data
//   3     number of observations
//   4     number of the level, from 1
// and the others have no reader here (a level of a random factor has thirteen).
#pragma once

#include "formats/sequential_file.h"
#include "input/model_records.h"

#include <cstdint>

namespace zeph {

struct reporting;

struct code_record {
  std::int32_t code = 0;
  std::int32_t nobs = 0;
  std::int32_t level = 0;
};

struct code_table {
  sequential_reader file;
  std::int64_t record = 0; // records taken since the start of the walk
};

// Begins the walk: opens the file when it isn't open, and goes back to the
// first record. A file that can't be opened fails at the first record.
void rewind_codes(code_table& table, const reporting& report);

// The next record, of level i2 of an effect with `levels` levels. A failed read
// prints its code, i2 and levels, and stops with code 16; a level number
// outside 1..levels is illegal input.
code_record next_code(code_table& table, std::int64_t i2, std::int32_t levels, reporting& report);

// Skips the records of all levels of an effect.
void skip_codes(code_table& table, std::int32_t levels, reporting& report);

// Walks the whole table once, so that a fault in it ends the run before its first round.
void check_codes(const model_records& m, reporting& report);

} // namespace zeph
