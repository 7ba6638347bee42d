// Reader of the model information file MODINF.
#pragma once

#include "input/model_records.h"

namespace zeph {

// Reads MODINF of the work directory from start to end into `m`, allocating as
// it goes; `m` is fresh. The stamp of the run goes to `report` too. Returns 0,
// or 1 after a wrong version or an unexpected end of file (both reported on the
// listing). A record too short for its items gives a line with its label and
// the code, and reading continues. Sizes are checked before each allocation;
// an illegal one, or a failed allocation, stops with code 16.
int QVAMRD(model_records& m, reporting& report);

// For a writer of the file: all sizes of `m` are set (those of MODEL and RMAT
// elements too, nt and nramat+1 of them); every array that the file stores is
// taken with its axes, zeroed, texts blank. Illegal sizes stop, code 16.
void allocate_modinf(model_records& m, reporting& report);

// A rule in messages: "low..high", ">= low" when high is the largest 32-bit
// integer or the one before it, or the one value.
std::string legal_range(std::int64_t low, std::int64_t high);

} // namespace zeph
