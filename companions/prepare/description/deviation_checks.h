// Checks of what a description says about trait deviations.
#pragma once

#include "prepare/description/description_messages.h"

namespace zeph::prepare {

// One factor at most is marked; it has no random regressions, and the first row of each trait takes its
// levels from one column: a level's deviation is that of this row. Deviations of the progeny need a pedigree,
// and no other factor with one. The rows are looked at when `formulas_are_good`.
void check_deviations(const model_description& d, message_log& log, bool formulas_are_good);

} // namespace zeph::prepare
