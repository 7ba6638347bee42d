// The fixed part of a trait: its class effects and regressions, coded as the files hold them.
#pragma once

#include "prepare/parts/covariable_values.h"
#include "prepare/parts/fixed_rank.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::prepare {

// "Fixed" class effect j of a trait. Spans over the records of the file.
struct class_effect {
  std::string name;                        // "herd:year", "mean"
  bool intercept = true;                   // has equations; false: only regressions are nested in it
  std::vector<std::int32_t> level;         // 1..n_levels; 0: trait not present, or the reference level
  std::vector<std::string> identification; // n_levels
  std::vector<std::int32_t> code;          // n_levels: the code of CODE_TABLE
  std::vector<std::int64_t> n_records;     // n_levels
  bool source = false;                     // its solutions are a covariable of another trait
  std::string lost;                        // then: a level that it lost, and why; empty: none

  [[nodiscard]] std::int32_t n_levels() const { return static_cast<std::int32_t>(code.size()); }
};

// Regression of a trait, in the order of its equations: a shift, all plain ones, then the nested ones.
struct fixed_regression {
  std::string name;          // "age", "dim.leg1", with ":" and the class for a nested one; "shift(infected)"
  std::string covariable;    // without the class
  int nested = -1;           // index of the class effect, or -1: one equation for all
  std::vector<double> value; // per record of the file; 0 where the record takes no part
  int solution =
      -1; // made from solutions: index of the covariable; the values are what they are multiplied by
  int indicator = -1; // a shift: the trait (0-based) that switches it; the values are its first memberships
};

// One row of the table "level, kept or reference, why".
struct coding_row {
  std::string column; // "sex:2"
  std::int64_t n_records = 0;
  column_state state = column_state::kept;
  std::string why;
};

struct fixed_part {
  std::vector<class_effect> classes;
  std::vector<fixed_regression> regressions;
  std::vector<coding_row> coding;
  std::vector<covariable_scale> scales;
};

// Makes the fixed part of trait t (0-based). Of full rank, unless the run asks for restrictions: then all
// levels stay and only empty ones are left out. The mean is a class effect of one level where no class effect
// absorbs it. A regression that is nested in a class effect without equations, or in other levels than those
// that the class effect kept, has a class effect of its own without equations; a level of it that was dropped
// keeps the covariable 0. A shift changes in the chain and takes no part in the rank.
// Errors are those of the covariables and of fixed_rank.
fixed_part make_fixed_part(const model_description& d, const data_columns& data,
                           const record_selection& records, int t, message_log& log);

} // namespace zeph::prepare
