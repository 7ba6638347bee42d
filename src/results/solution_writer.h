// SOLWRITE: all solutions with their class codes, in the order of the layout,
// to a text file, and the first 250 of each block to the listing.
//
// A row of the file, format I1, 2I3, I4, 3I12, 2G20.6 (iout(1..7), rout(1..nr)):
//
// iout  HEADER       REGRESSION             FIXED EFFECT   RANDOM FACTOR
// 1     0            1                      2              3
// 2     unit digit   trait                  trait          trait
// 3     7            nesting effect or 0    effect         number in the factor's traits
// 4     nr           regression             0              factor
// 5     0            number within it       class code     class code
// 6     0            0                      observations   observations
// 7     0            0                      level          level
//
// The option's tens digit: 0 and 1 write the file from scratch; with 2 it is left alone
// (only genomic effects would follow, which the model file doesn't have); from
// 3 on illegal. Its unit digit:
//
// UNIT   LISTING  nr  rout(2)
// 0      no       2   second vector
// 1      yes      1   none
// 2      yes      2   second vector
// 3      no       2   0
// 4      yes      2   square root of the second vector, restricted equations 0
// 5      yes      2   second vector; words of the package's solvers
// 6      yes      2   0; the second vector is zeroed as for 4
#pragma once

#include "input/model_records.h"

#include <string_view>

namespace zeph {

// Writes `file` of the work directory from first (the solutions, neq) and second
// (neq). An element below 9.9999998245167e-14 in size becomes 0, in the vector
// too; so do elements of a second vector that is written as it is. With
// sol_layout = 1 solutions and roots are multiplied by SPRE of their trait.
// IREST(1..n_IREST) are the restricted equations.
//
// Returns 0, or 1 after a unit digit above 6 or a negative option (reported on the
// listing, nothing written). Stops with code 16: illegal tens digit, CODE_TABLE
// that can't be read, a write that fails. The line counter of the listing turns
// the pages: banner before a block after line 68, and before a row of a random
// factor after line 77.
int SOLWRITE(std::int32_t option, const model_records& m, const vec<std::int32_t>& IREST,
             std::int32_t n_IREST, vec<double>& first, vec<double>& second, std::string_view file,
             reporting& report);

} // namespace zeph
