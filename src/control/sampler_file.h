// The optional file `sampler` of a work directory: what a run does beyond the plain sampler.
//
// Text, one word a line with its values after it; `#` begins a comment, empty lines count for
// nothing, each word is there at most once but `model_prior`, which is there once a factor.
//   exact                   every step draws from its full conditional distribution
//   state [minutes]         the whole state is saved that often (10), 0: at the end only
//   model_prior k w1 .. wq  prior weights of 1..q rows of random factor k
//   density n               16..4096 points for the density of records of three and more latent values
#pragma once

#include "input/run_records.h"
#include "listing/reporting.h"

namespace zeph {

inline constexpr std::string_view sampler_file = "sampler";

// Reads the file into asked.sampler, if it is there, and repeats its words on the listing; a file
// of comments asks for nothing. asked.analysis_type has been read. Every fault stops in the one form
// for bad input, code 16; an unknown word as item "word", its line the index.
void read_sampler_file(const model_records& m, directives& asked, reporting& report);

} // namespace zeph
