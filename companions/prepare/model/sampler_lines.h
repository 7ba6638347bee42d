// The lines of the file `sampler`, by which ZEPH does more than the classic chain.
#pragma once

#include "prepare/model/prepared_model.h"

#include <string>
#include <vector>

namespace zeph::prepare {

constexpr const char* sampler_file = "sampler";

// One word a line: exact, state, model_prior with the number of the factor (from 1), density. No word asked
// for: no lines, and the directory holds no such file.
std::vector<std::string> sampler_lines(const model_description& d, const prepared_model& p);

// A note when records may have three and more latent values and no points for their density are given.
void note_missing_density(const model_description& d, const prepared_model& p, message_log& log);

} // namespace zeph::prepare
