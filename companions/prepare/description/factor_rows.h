// The rows of the covariance matrix of each factor: which coefficients of which traits, their names and their
// order.
#pragma once

#include "prepare/description/description_messages.h"

namespace zeph::prepare {

// Fills factor_section::rows of all factors from the formulas, by trait, within it by term and effect, and
// names them (see factor_row). Error: a coefficient that appears twice on one column of one factor. Random
// terms whose factor has no table are passed over.
void make_rows(model_description& d, message_log& log);

// Puts the rows of a factor into the order of its key `order`, which is not empty. Errors: a word that is no
// row (with the nearest), a row twice, a row left out; the rows then stay as they are.
void apply_order(const model_description& d, message_log& log, factor_section& f);

} // namespace zeph::prepare
