// Writer of the model information file, for programs that make work directories.
#pragma once

#include "input/model_records.h"

#include <string>

namespace zeph {

// Writes `m` as the file `path`, in the layout that QVAMRD reads. All sizes are
// set and legal, and every array has the axes that the sizes give
// (`allocate_modinf` makes them so); an array without elements may be left
// unallocated. Texts are blank padded, longer ones cut. What QVAMRD has read
// whole comes out with the same bytes.
// False when something does not fit, with its name in `fault`, or when the file
// can't be written, with `fault` "write"; the file is then not to be used.
// Prints nothing and never stops.
bool write_modinf(const model_records& m, const std::string& path, std::string& fault);

} // namespace zeph
