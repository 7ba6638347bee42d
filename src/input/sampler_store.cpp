#include "input/sampler_store.h"

#include <algorithm>

namespace zeph {

void QVAgib_ALLOC(const model_records& m, sampler_store& s, reporting& report) {
  constexpr std::string_view routine = "QVAgib_ALLOC";
  s.nf = m.nt;
  for (const structure_record& r : m.RMAT_rows) s.nf = std::max(s.nf, r.n_rc);
  s.G = m.n_groups_residual();

  allocate(report, s.GIF, "GIF", routine, s.nf, s.nf, m.nramat);
  allocate(report, s.GDET, "GDET", routine, m.nramat);
  allocate(report, s.RDET, "RDET", routine, (std::int64_t{1} << m.nt) - 1); // one per non-empty set of traits
  allocate(report, s.COVSAMPM, "COVSAMPM", "SAMPMRES", m.nt, m.nt);
}

} // namespace zeph
