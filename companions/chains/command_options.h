// What the command line of zeph-chains asks for.
#pragma once

#include "chains/layout.h"

#include <cstdint>
#include <string>

namespace zeph::chains {

struct run_options {
  fs::path work;
  fs::path into; // empty: WORK.runs beside WORK
  int chains = 4;
  int jobs = 0; // 0: the processors of this machine
  bool slurm = false;
  std::string sbatch; // options of sbatch
  int segments = 1;   // arrays, each after the one before
};

struct continue_options {
  fs::path runs;
  std::int64_t rounds = 0; // 0: what is left
  int jobs = 0;
  bool here = false, slurm = false; // neither: as it was started last
  std::string sbatch;
  int segments = 1;
};

} // namespace zeph::chains
