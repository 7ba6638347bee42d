// What a classic chain refuses, or draws only nearly right, and an exact one draws.
#pragma once

#include "prepare/description/description_messages.h"

namespace zeph::prepare {

// For a run without the word exact. Errors: weights of latent and of mixed traits, covariances left free
// beside residual groups by component, [run] density_points, [factor.NAME] model_prior. Warnings: several
// indicators, covariances of components left free, flat priors of compared numbers of rows (rows_known: the
// rows of the factors are), a pedigree factor in a chain over models. Needs link_kinds before it.
void check_classic_chain(const model_description& d, message_log& log, bool rows_known);

} // namespace zeph::prepare
