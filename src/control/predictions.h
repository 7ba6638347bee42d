// The list of records to predict.
#pragma once

#include "input/model_records.h"
#include "input/prediction_store.h"

namespace zeph {

// Reads `ytopredict`: a pair of integers, record and trait, on each line, to its
// end; an odd last number is dropped. Prints the count. A pair
// outside 1..nobs, 1..nt is reported; when there is any, the run stops with code 16
// after all pairs have been read. A text that is no integer is illegal input.
void read_ytopredict(const model_records& m, prediction_store& predictions, reporting& report);

} // namespace zeph
