// The lines of the directive file, in the order in which ZEPH reads them.
#pragma once

#include "prepare/description/model_description.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::prepare {

constexpr const char* directive_file = "zeph.dir";

// Type and test level; seeds; rounds; one line per factor and one for the residual with the prior degrees of
// freedom. The file ends there, as analysis types 4 and up demand, unless there are solutions used as
// covariates or restrictions: the lines of `solutions` ("0" when it is empty) and the flag of the
// restrictions follow three proposal values and a count of censored traits, which have no effect.
// prior_df: per factor, the residual last.
std::vector<std::string> directive_lines(const run_section& run, const std::vector<std::int32_t>& prior_df,
                                         const std::vector<std::string>& solutions = {});

} // namespace zeph::prepare
