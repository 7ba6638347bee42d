// The driver's three plain records, as a test fills them without a run.
#pragma once

#include "input/run_records.h"

namespace zeph_test {

struct chain_frame {
  zeph::directives asked;
  zeph::round_state state;
  zeph::chain_counts counts;
};

} // namespace zeph_test
