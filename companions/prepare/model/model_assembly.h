// From a checked description and its data to everything that a work directory holds.
#pragma once

#include "prepare/description/description_records.h"
#include "prepare/messages/messages.h"
#include "prepare/model/prepared_model.h"

#include <array>
#include <cstdint>

namespace zeph::prepare {

struct prepare_options {
  bool prune = false;                      // also [run] prune
  std::array<std::int32_t, 6> run_stamp{}; // day, month, year, hour, minute, second
};

// Reads the data and the files of the factors and assembles the model. All faults of a stage are reported
// before the assembly ends there; no file is written.
//
// Equations: plain regressions (trait outer), nested regressions (trait outer), class effects (effect outer,
// trait inner), then the factors without pedigree, then those with one; levels outside, rows of the matrix
// inside.
prepared_model assemble_model(const model_description& d, const prepare_options& options, message_log& log);

} // namespace zeph::prepare
