// Formulas of [derive]: whether the report of the chains will find every name in them.
#pragma once

#include "prepare/description/description_messages.h"

namespace zeph::prepare {

// Checks every formula: letters and signs that may appear in one, balanced brackets, functions (sqrt, exp,
// log, abs, min, max), and names: G[factor,row,row], R[trait,trait] or R[group,trait,trait],
// threshold[trait,number], pi[trait], the names that the report derives by itself (h2[..], rg[..], VP[..] ..:
// their kind only), and derived values further up. A row is called by its name or, where the factor has one
// row of the trait, by the trait. Every fault is an error at its place in the text. The rows of the factors
// must be filled.
void check_derived(const model_description& d, message_log& log);

} // namespace zeph::prepare
