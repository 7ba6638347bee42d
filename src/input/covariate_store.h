// Class-effect solutions that serve as covariables of other traits: which
// regressions take their coefficients from which solutions.
#pragma once

#include "numerics/arrays.h"

#include <cstdint>
#include <vector>

namespace zeph {

enum class source_kind : std::int32_t { none = 0, fixed_effect = 1, random_effect = 2 };

// A regression whose coefficients are made from solutions.
struct turned_regression {
  std::int32_t trait = 0, regression = 0;
  std::int32_t cv_no = 0, acv_no = 0; // input numbers of the covariable and of the associated one (0: none)
  std::int32_t base_rci = 0;          // place in the reals of what the solutions are multiplied by
  std::int32_t first = 0, last = 0;   // its equations
  std::int32_t group = 0;
};

// A class effect of one trait and what its solutions feed.
struct class_effect_source {
  std::int32_t trait = 0, feno = 0; // trait and its effect, as the user numbers them
  source_kind ef_type = source_kind::none;
  std::int32_t ef_no_w = 0; // number among the "fixed" or the random effects of the trait
  std::int32_t ef_rci = 0;  // place of the level in the integers
  std::int32_t group = 0;
  std::int32_t levels = 0;
  std::int64_t first = 0, step = 0; // level l has equation first + (l-1) step
  std::vector<turned_regression> regressions;

  double mef = 0, sd = 0;   // mean and standard deviation of the solutions, at the last refresh
  vec<double> HCSOL;        // levels: solutions less their mean
  vec<std::int32_t> FE_LEV; // nobs: level of the record; 0 or less: none
  mat<std::int32_t> entry;  // regressions x nobs: entry of the record; 0: none
  mat<float> base;          // regressions x nobs: what the solution is multiplied by
};

struct covariate_store {
  std::int32_t stdef = 0;                    // not 0: solutions are divided by their standard deviation
  std::vector<class_effect_source> FETOCVRC; // in the user's order; empty: none
  vec<logical> gfetocv;                      // ngroups: the group's solutions feed a covariable

  bool feeds(std::int32_t g) const { return gfetocv.allocated() && gfetocv(g) != 0; }
};

} // namespace zeph
