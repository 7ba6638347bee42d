// Loading of the data: each record of RCDATA_I and RCDATA_R becomes a row of
// the design; then the relationship files are read.
#pragma once

#include "input/design_store.h"
#include "input/equation_layout.h"
#include "input/relationships.h"

namespace zeph {

// Reads both record files once, start to end, and checks every index, level and
// code of a record before anything is addressed by it (a bad one is illegal
// input: file, item, record, value; code 16). Prints the number of records.
// Returns 0; 1 when there is no first record or a relationship file has none;
// 2 when the number of records differs from the model's (records beyond it are
// counted, not stored). A failed allocation goes to the allocation report.
int READTOMEM(const model_records& m, const equation_layout& layout, design_store& design,
              relationship_store& relations, reporting& report);

// Largest number of entries that a record can have.
std::int64_t largest_record(const model_records& m);

} // namespace zeph
