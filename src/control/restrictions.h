// Restrictions: the last level of every "fixed" class effect of a trait but its
// first is held at zero, so that the equations have full rank.
#pragma once

#include "input/run_records.h"
#include "input/sampler_store.h"

namespace zeph {

// Makes the list IREST and prints it. Above analysis type 2 restrictions don't
// work: the listing says so and the list stays empty. The first effect of a trait is
// spared, except for the traits of a pedigree factor with phantom parent groups
// that are not restricted themselves.
void impose_restrictions(const model_records& m, const directives& asked, sampler_store& s,
                         reporting& report);

} // namespace zeph
