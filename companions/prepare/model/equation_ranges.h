// Which equations belong to which part of the model, by name.
#pragma once

#include "prepare/model/prepared_model.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::prepare {

struct equation_range {
  std::string part;       // "regression", "class", "factor"
  int trait = -1;         // 0-based; -1: a factor
  std::string name;       // long name: "age", "herd:year", "genetic"
  std::int64_t first = 0; // first equation, from 1
  std::int64_t n = 0;     // equations
  std::int32_t order = 1; // equations per level
  int nested_in = 0;      // nested regression: number of its class effect in the trait
};

// All parts with equations, in the order of the traits, then the factors.
std::vector<equation_range> equation_ranges(const model_description& d, const prepared_model& p);

// Equations of the parts that [keep] lists, ascending, each once: a factor, an effect or regression of all
// traits ("sex"; "1" is the mean), or "trait.effect". A name without equations is an error.
std::vector<std::int32_t> kept_equations(const model_description& d,
                                         const std::vector<equation_range>& ranges, message_log& log);

} // namespace zeph::prepare
