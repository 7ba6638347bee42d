// Numbers that the files can't hold, and observations that can't give an answer, found before a chain is run.
#pragma once

#include "prepare/model/prepared_model.h"

namespace zeph::prepare {

// Errors with file and line: a value of a covariable's curve, poly(x, 9) say, that is beyond 32-bit reals.
// (Numbers of the data are looked at where they are read.)
void refuse_unfit_numbers(const prepared_model& p, message_log& log);

// Chains that draw the residual matrix: a trait whose observations in use are all equal, and one with fewer
// records than the rank of its fixed part and two more. Both are errors when the prior of the residual
// matrix is flat, else warnings. Traits whose residual variance is 1 are passed over. Fixed parts and
// records are made.
void check_information(const model_description& d, const prepared_model& p, message_log& log);

// Warnings: a trait or covariable of which 32-bit reals lose more than a thousandth of its standard
// deviation, or whose mean is more than 10,000 standard deviations.
void warn_of_precision(const model_description& d, const prepared_model& p, message_log& log);

} // namespace zeph::prepare
