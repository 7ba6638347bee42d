// The levels of a pedigree factor in the order of its generations, and the log
// determinant of a relationship matrix that is known by its sparse inverse.
#pragma once

#include "input/relationships.h"

#include <cstdint>
#include <vector>

namespace zeph {

// The levels 1..n in the order in which repeated passes from 1 to n settle them:
// a pass settles each level whose known parents are settled. pedmat(1..2,level):
// parents, the sign without meaning, 0 unknown. A pass that settles none before
// all are settled stops as illegal input of the pedigree file `name`: a loop.
std::vector<std::int32_t> settle_levels(const mat<std::int32_t>& pedmat, std::int32_t n,
                                        std::string_view name, reporting& report);

// ln |A| from the rows of A^-1: minus the sum of the logs of the pivots of its
// elimination, levels in the reverse of `settled`. In that order the inverse of a
// pedigree relationship fills in nowhere, since the links of an eliminated level
// run between its parents, which are linked already. C. R. Henderson, A simple
// method for computing the inverse of a numerator relationship matrix used in
// prediction of breeding values, Biometrics 32 (1976) 69-83. Links that other
// matrices fill in are made. Elements that rows hold in parts, as a file that names
// them more than once leaves them, count as their sum. A pivot not above 0 stops as illegal input of `name`.
double log_det_relationship(const relationship_rows& rows, const std::vector<std::int32_t>& settled,
                            std::string_view name, reporting& report);

} // namespace zeph
