// The screen at the end: what was read, and what the model has become.
#pragma once

#include "prepare/model/prepared_model.h"

#include <string>

namespace zeph::prepare {

// Records read, used and dropped; missing patterns; traits; class effects and regressions; factors; start
// matrices (given or default) with prior degrees of freedom; equations; memory of the design. Lines ended by
// '\n'.
std::string summary_text(const model_description& d, const prepared_model& p);

// For prepare.txt only: every level of the fixed part, kept or reference and why, and the lines of the
// records in which a trait was made missing.
std::string detail_text(const model_description& d, const prepared_model& p);

} // namespace zeph::prepare
