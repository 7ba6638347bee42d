// Warnings and notes about the kinds of the traits that need the data.
#pragma once

#include "prepare/description/sampler_checks.h"
#include "prepare/parts/fixed_part.h"

#include <vector>

namespace zeph::prepare {

// Error: a component of a mixture without a record of its mixed trait at the start. Warnings: a level of a
// fixed class effect in which a trait of categories has only its first or only its last one, so that the
// level's solution has no posterior; a component 1 that begins with the lower mean; residual matrices by
// component with flat prior in a run that is not exact; sequences that all end with an event. Note: an
// ordered trait, whose chain can't be continued without its saved state. fixed: per trait.
void warn_of_kinds(const model_description& d, const data_columns& data, const record_selection& records,
                   const std::vector<fixed_part>& fixed, bool exact, message_log& log);

// Components and cured fractions that begin with fewer records (subjects) than an exact chain can start
// from: 2 nt + 2 in either component with residual matrices of their own and a flat prior, 1 cured subject.
std::vector<sampler_reason> small_components(const model_description& d, const data_columns& data,
                                             const record_selection& records);

} // namespace zeph::prepare
