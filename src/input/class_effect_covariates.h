// Solutions of a class effect of one trait as covariables of other traits: the
// coefficient of such a regression in a record is
//   base (s(l) - mean of s) [/ standard deviation of s],
// l the record's level of the effect, s its current solutions, base the value of
// the covariable as loaded, or of the associated covariable. A record without a
// level has coefficient 0.
#pragma once

#include "input/design_store.h"
#include "input/equation_layout.h"
#include "input/run_records.h"

#include <string_view>

namespace zeph {

// Standard deviations below it count as this: 1.0E-20 as a 32-bit number.
inline constexpr double least_deviation = static_cast<double>(1.0E-20F);

// Prints the user's list (asked.FETOCV, asked.stdef) on the listing, finds each effect and
// the regressions it feeds, and allocates the stores of design.covariates. Effect e of
// a trait is the one with input number EF_INP(e): a "fixed" effect with equations,
// or a random effect, which takes precedence; of a random one the solutions are those
// of the row that the trait's first contribution has in the factor. It feeds all
// plain and nested regressions, of any trait, whose covariable is in its list; one
// that no regression has feeds nothing, and of the same one twice the last pair counts.
// Above test level 1 the tables are printed. A trait or effect that doesn't exist, an
// associated covariable that no regression has: illegal input of list_file, code 16.
void FETOCV(const model_records& m, const equation_layout& layout, const directives& asked,
            std::string_view list_file, design_store& design, reporting& report);

// Keeps for loaded record r its levels, the entries of its row that take their
// coefficients from solutions, and their bases. IINP, RINP: the data record.
void keep_covariates(std::int64_t r, const vec<std::int32_t>& IINP, const vec<float>& RINP,
                     design_store& design, reporting& report);

// Computes all such coefficients ZD_M from the solutions sol. Where two sources
// feed one regression the later one counts. Standard deviation with divisor
// levels - 1, 0 for one level; sol is not changed.
void refresh_covariates(const vec<double>& sol, design_store& design);

// True when equation e of a plain or nested regression has coefficients made from solutions.
bool is_turned(const covariate_store& covariates, std::int32_t e);

} // namespace zeph
