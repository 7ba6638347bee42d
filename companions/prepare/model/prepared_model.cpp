#include "prepare/model/prepared_model.h"

namespace zeph::prepare {

std::int64_t design_bytes(const prepared_model& p) {
  return bytes_per_entry * p.largest_row * static_cast<std::int64_t>(p.records.n_used());
}

std::int64_t equations_of(const model_records& m) { return m.NBEGRA(m.nramat + 1); }

} // namespace zeph::prepare
