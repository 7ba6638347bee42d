// The lines of the file `sampler`, by which ZEPH does more than the classic chain.
#pragma once

#include "prepare/model/prepared_model.h"

#include <string>
#include <vector>

namespace zeph::prepare {

constexpr const char* sampler_file = "sampler";

// Whether the run is exact: as the description says, or, where it does not, a chain that can be, and a
// solver that can be and in whose records levels of a factor meet. Reasons against it that lie in the data
// are errors where the description asks for it, else a warning, and the run is judged as a classic one.
// Needs the records and the factors.
bool choose_exact(const model_description& d, const prepared_model& p, message_log& log);

// One word a line: exact, state, moves, model_prior with the number of the factor (from 1), density. No word
// asked for: no lines, and the directory holds no such file.
std::vector<std::string> sampler_lines(const model_description& d, const prepared_model& p);

// A note when records may have three and more latent values and no points for their density are given.
void note_missing_density(const model_description& d, const prepared_model& p, message_log& log);

} // namespace zeph::prepare
