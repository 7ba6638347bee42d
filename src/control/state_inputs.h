// The inputs of a chain by their sums: a chain is continued only on those that it began with.
#pragma once

#include "control/state_file.h"
#include "input/model_records.h"
#include "listing/reporting.h"

namespace zeph {

// In this order: MODINF, RCDATA_I, RCDATA_R, the files of relationships and pedigree, the words of
// `sampler` without `state`, the lines of the directive file without the number of rounds. A file that is
// not there, or can't be read, has digits 0; who needs it says so.
std::vector<input_print> prints_of_inputs(const model_records& m, const reporting& report,
                                          const std::string& directives);

// The words of a file `sampler`, a line each, without comments and without the line of `state`.
std::string plain_words(std::string_view text);

// The values of a directive file, a line each: those of the first three reads alone (2, 2 and 3 values,
// the number of rounds left out), then all that its other lines hold. Counts n*v are written out in the
// first three.
std::string plain_directives(std::string_view text);

} // namespace zeph
