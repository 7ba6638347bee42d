// Everything that a work directory holds, as the stages of the assembly leave it.
#pragma once

#include "input/model_records.h"
#include "prepare/parts/factor_levels.h"
#include "prepare/parts/fixed_part.h"
#include "prepare/parts/start_values.h"
#include "prepare/records/data_rows.h"
#include "prepare/records/residual_patterns.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::prepare {

// Short names as they are in MODINF, unpadded.
struct model_names {
  std::vector<std::string> traits;                   // per trait
  std::vector<std::vector<std::string>> classes;     // per trait and class effect
  std::vector<std::vector<std::string>> covariables; // per trait and regression, random ones included
  std::vector<std::vector<std::string>> rows;        // per factor and row
};

struct prepared_model {
  data_columns data;
  record_selection records;
  std::vector<fixed_part> fixed;      // per trait
  std::vector<factor_levels> factors; // factor k at index k - 1
  residual_patterns patterns;
  start_values start;
  data_rows rows;
  model_names names;
  model_records model;                 // MODINF
  std::vector<std::string> directives; // lines of the directive file
  bool exact = false;                  // the run draws every step from its full conditional distribution
  std::vector<std::string> sampler;    // lines of the file sampler; none: no such file
  std::int64_t largest_row = 0;        // entries of the largest design row
  bool complete = false;               // false: an error was found, only the parts before it are filled
};

constexpr std::int64_t bytes_per_entry = 36; // of a design row in memory: seven integers and a coefficient

// Memory of the design in bytes, whatever the rows hold.
std::int64_t design_bytes(const prepared_model& p);

// Equations: neq, and the first one of parts of the model (1-based; 0: none).
std::int64_t equations_of(const model_records& m);

} // namespace zeph::prepare
