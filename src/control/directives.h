// The directive file: the lines of the user's additional input, read in free
// format in two stretches, each value echoed on the listing.
//
// Lines in order: type of analysis and test level; seeds; burn-in, rounds,
// interval; number and prior degrees of freedom of each random factor and of the
// residual; proposal degrees of freedom, variance, conversion coefficient. After
// the groups are formed: censored traits, class-effect solutions as covariates,
// restrictions. The file may end before the proposal values and at any of the
// later lines.
#pragma once

#include "formats/free_format.h"
#include "input/equation_layout.h"
#include "input/run_records.h"
#include "input/sampler_store.h"
#include "numerics/random_sources.h"

namespace zeph {

// Name of the directive file: the only non-blank of the model's five texts;
// among several the first that exists and begins with two integers, else the
// first that exists, else "DUMMY" if one says so, else the first. "DUMMY": none.
std::string directive_file_name(const model_records& m, const reporting& report);

// The name as that of a file of the work directory; a full path stays as it is.
std::string directive_path(const reporting& report, const std::string& name);

// Opens the directive file; "DUMMY" stops with code 16. A missing file shows as
// a failed read of the first line.
void open_directives(const model_records& m, free_reader& lines, reporting& report);

// Lines up to the proposal values (PDF and DDF are allocated
// here). Starts the combined source as the seeds ask. Every failure stops.
void read_directives(const model_records& m, directives& asked, random_sources& sources, free_reader& lines,
                     reporting& report);

// The first lines after the groups are formed: censored traits, class-effect
// solutions used as covariates. False when the file ended in them.
bool read_covariate_directives(const model_records& m, directives& asked, free_reader& lines,
                               reporting& report);

// The last line. Fills the list of restricted equations.
void read_restriction_directive(const model_records& m, directives& asked, sampler_store& s,
                                free_reader& lines, reporting& report);

} // namespace zeph
